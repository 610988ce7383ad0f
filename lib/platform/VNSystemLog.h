#pragma once

#include <memory>
#include <string_view>

#include "foundation/VNExport.h"

// The system's logs: the unified log (the systemd journal on Linux), whose
// entries carry a level, a subsystem and a category, and the classic BSD
// syslog. Entries without subsystem and category are the general system log.
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
  // Sends `text` to syslog with `priority` (facility and level combined).
  virtual void syslog(int priority, std::string_view text) = 0;

  static std::shared_ptr<VNSystemLog> makeDefault();
};
