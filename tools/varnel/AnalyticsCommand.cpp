// varnel analytics send: sends one analytics event, as the library would, so
// that operators can test what their pipeline receives.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Command.h"
#include "foundation/VNError.h"
#include "foundation/VNValue.h"
#include "host/VNAnalyticsManager.h"

namespace varnel {
namespace {

const char* const kEvents[] = {
    VNAnalyticsEventLTTokenIssuing,   VNAnalyticsEventQuarantinedPath,  VNAnalyticsEventMigrationCompleted,
    VNAnalyticsEventPostLoginPerf,    VNAnalyticsEventPostLoginErrors, VNAnalyticsEventOverallResults1_0,
    VNAnalyticsEventWiFiInfo};

int sendAnalyticsEvent(const std::string& event, const std::string& payloadText) {
  VNError error;
  std::optional<VNValue> payload = VNValue::fromJSON(payloadText, &error, "--payload");
  if (!payload) return usageError(error.localizedDescription());
  if (!payload->asDictionary()) return usageError("--payload: a JSON object is expected");
  VNAnalyticsManager::sharedManager()->sendEvent(event, *payload);
  return kExitOK;
}

CommandRegistration registration("analytics", [](CLI::App& app, int& status) {
  auto* group = commandGroup(app, "analytics", "Analytics events");
  auto* send = group->add_subcommand(
      "send", "Send one analytics event with a payload, logged and written to the journal as the library does");
  auto event = std::make_shared<std::string>();
  auto payload = std::make_shared<std::string>("{}");
  send->add_option("EVENT", *event, "The event's name")
      ->required()
      ->check(CLI::IsMember(std::vector<std::string>(std::begin(kEvents), std::end(kEvents))));
  send->add_option("--payload", *payload, "The payload: a JSON object (docs/json.md)")->capture_default_str();
  send->footer(
      "Nothing is logged or sent while the environment holds __OSINSTALL_ENVIRONMENT. "
      "The journal entries are described in docs/analytics.md.");
  send->callback([event, payload, &status] { status = sendAnalyticsEvent(*event, *payload); });
});

}  // namespace
}  // namespace varnel
