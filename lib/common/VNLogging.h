#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/VNExport.h"

// Log types. Any other value is accepted and treated like the default type,
// except that it never reaches the log file.
using VNLogType = std::uint64_t;
inline constexpr VNLogType VNLogTypeError = 0;
inline constexpr VNLogType VNLogTypeFault = 1;
inline constexpr VNLogType VNLogTypeDefault = 2;
inline constexpr VNLogType VNLogTypeDebug = 3;

// The library's single log sink. Messages arrive already formatted; callers
// build them first (VNFormat) and never pass a format here.
//
// Each message goes, by its type, to:
// - the unified log (VNSystemLog), on the channel "org.varnel.kes.install" /
//   "Varnel", at level error (type 0), fault (1), debug (3) or default (any
//   other), when that level is enabled;
// - in the base system (VNBaseSystem, asked for every message), the log file
//   (VNLogFileLocation), as the line "<program>[<pid>]: <message>\n", for
//   types 0 to 2 only. The file is opened on the first message logged in the
//   base system, whatever its type, given mode 0755, and never reopened.
// After forceUsingSyslog, a message of any type but 3 goes to syslog with
// priority 115 (installation facility, level error) and nowhere else; a type
// 3 message is dropped.
//
// Any thread may log at any time; call forceUsingSyslog before logging from
// several threads.
class VN_EXPORT VNLogging {
 public:
  VNLogging() = delete;

  // Routes `message` as above. `function` and `line` name the caller and are
  // accepted but written nowhere. Never fails and never throws: a log that
  // cannot be written loses the message silently.
  static void logType(VNLogType type, const char* function, int line,
                      std::string_view message) noexcept;
  // From now on every message goes to syslog only (once set, never cleared).
  static void forceUsingSyslog() noexcept;
};
