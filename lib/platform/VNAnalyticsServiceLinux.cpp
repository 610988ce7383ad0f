#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include "platform/VNAnalyticsService.h"
#include "platform/internal/VNJournalFields.h"

namespace {

class VNJournalAnalyticsService final : public VNAnalyticsService {
 public:
  // Fire and forget: the journal's answer is not looked at, as the service's
  // contract says.
  void sendEvent(std::string_view eventName, const VNValue& payload) override {
    const std::vector<std::string> fields = VNAnalyticsJournalFields(eventName, payload);
    std::vector<iovec> vectors;
    vectors.reserve(fields.size());
    for (const auto& field : fields)
      vectors.push_back({const_cast<char*>(field.data()), field.size()});
    static_cast<void>(::sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size())));
  }
};

}  // namespace

std::shared_ptr<VNAnalyticsService> VNAnalyticsService::makeDefault() {
  return std::make_shared<VNJournalAnalyticsService>();
}
