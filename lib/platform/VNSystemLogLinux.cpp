// The systemd journal as the unified log, and syslog(3).
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

#include <cstdlib>
#include <string>

#include "platform/VNSystemLog.h"

namespace {

int journalPriority(VNSystemLog::Level level) {
  switch (level) {
    case VNSystemLog::Level::Debug: return LOG_DEBUG;
    case VNSystemLog::Level::Default: return LOG_NOTICE;
    case VNSystemLog::Level::Error: return LOG_ERR;
    case VNSystemLog::Level::Fault: return LOG_CRIT;
  }
  return LOG_NOTICE;
}

std::string field(std::string_view name, std::string_view value) {
  std::string text;
  text.reserve(name.size() + 1 + value.size());
  text.append(name).append("=").append(value);
  return text;
}

class LinuxSystemLog final : public VNSystemLog {
 public:
  bool isLevelEnabled(Level level, std::string_view, std::string_view) override {
    return level != Level::Debug || debugEnabled_;
  }

  // sd_journal_sendv takes each field whole, so a message with newlines or
  // NUL bytes arrives intact (sd_journal_send would cut it at a NUL).
  void log(Level level, std::string_view subsystem, std::string_view category,
           std::string_view text) override {
    std::string fields[] = {field("MESSAGE", text),
                            field("PRIORITY", std::to_string(journalPriority(level))),
                            field("VARNEL_SUBSYSTEM", subsystem), field("VARNEL_CATEGORY", category)};
    iovec vectors[4];
    int count = subsystem.empty() ? 2 : 4;
    for (int i = 0; i < count; ++i) vectors[i] = {fields[i].data(), fields[i].size()};
    sd_journal_sendv(vectors, count);
  }

  void syslog(int priority, std::string_view text) override {
    std::string message(text);
    ::syslog(priority, "%s", message.c_str());
  }

 private:
  const bool debugEnabled_ = [] {
    const char* value = std::getenv("VARNEL_LOG_DEBUG");
    return value && std::string_view(value) == "1";
  }();
};

}  // namespace

std::shared_ptr<VNSystemLog> VNSystemLog::makeDefault() { return std::make_shared<LinuxSystemLog>(); }
