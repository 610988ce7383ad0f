#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// The system's logs: the unified log, whose entries carry a level, a
// subsystem and a category, and the classic BSD syslog. Entries without
// subsystem and category are the general system log.
//
// On Linux the unified log is the systemd journal: the level becomes the
// entry's PRIORITY (debug 7, default 5, error 3, fault 2), the subsystem and
// category the fields VARNEL_SUBSYSTEM and VARNEL_CATEGORY. Debug entries are
// recorded only when the environment variable VARNEL_LOG_DEBUG is "1", read
// once when the service is made; every other level is always recorded. When
// no journal or syslog daemon runs, entries are dropped without delay.
class VN_EXPORT VNSystemLog {
 public:
  enum class Level { Debug, Default, Error, Fault };

  virtual ~VNSystemLog() = default;

  // Whether entries of `level` on this channel are recorded at all; callers
  // skip building entries that would be dropped.
  virtual bool isLevelEnabled(Level level, std::string_view subsystem,
                              std::string_view category) = 0;
  // Records one entry. Fire and forget: nothing is reported when no log runs.
  virtual void log(Level level, std::string_view subsystem, std::string_view category,
                   std::string_view text) = 0;
  // Sends `text` to syslog with `priority` (facility and level combined) and
  // the format "%s".
  virtual void syslog(int priority, std::string_view text) = 0;

  static std::shared_ptr<VNSystemLog> makeDefault();
};

// One subsystem and category of a unified log, bound to that log for its
// whole life: entries go to the log it was made with even after the process's
// current VNSystemLog is replaced.
class VN_EXPORT VNSystemLogChannel {
 public:
  VNSystemLogChannel(std::shared_ptr<VNSystemLog> log, std::string subsystem,
                     std::string category)
      : log_(std::move(log)), subsystem_(std::move(subsystem)), category_(std::move(category)) {}

  bool isLevelEnabled(VNSystemLog::Level level) const {
    return log_->isLevelEnabled(level, subsystem_, category_);
  }
  void log(VNSystemLog::Level level, std::string_view text) const {
    log_->log(level, subsystem_, category_, text);
  }

 private:
  std::shared_ptr<VNSystemLog> log_;
  std::string subsystem_;
  std::string category_;
};
