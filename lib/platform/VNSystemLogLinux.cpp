// The systemd journal as the unified log, and syslog(3).
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

class LinuxSystemLog final : public VNSystemLog {
 public:
  bool isLevelEnabled(Level level, std::string_view, std::string_view) override {
    // The journal keeps every level; debug entries are recorded only when
    // asked for, as they would otherwise flood it during long copies.
    return level != Level::Debug || debugEnabled_;
  }

  void log(Level level, std::string_view subsystem, std::string_view category,
           std::string_view text) override {
    std::string message(text);
    if (subsystem.empty()) {
      sd_journal_send("MESSAGE=%s", message.c_str(), "PRIORITY=%d", journalPriority(level), nullptr);
      return;
    }
    std::string sub(subsystem), cat(category);
    sd_journal_send("MESSAGE=%s", message.c_str(), "PRIORITY=%d", journalPriority(level),
                    "VARNEL_SUBSYSTEM=%s", sub.c_str(), "VARNEL_CATEGORY=%s", cat.c_str(), nullptr);
  }

  void syslog(int priority, std::string_view text) override {
    std::string message(text);
    ::syslog(priority, "%s", message.c_str());
  }

 private:
  const bool debugEnabled_ = [] {
    const char* value = std::getenv("VARNEL_LOG_DEBUG");
    return value && *value == '1';
  }();
};

}  // namespace

std::shared_ptr<VNSystemLog> VNSystemLog::makeDefault() { return std::make_shared<LinuxSystemLog>(); }
