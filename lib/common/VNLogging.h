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

// The library's single log sink. Messages arrive already formatted.
class VN_EXPORT VNLogging {
 public:
  VNLogging() = delete;

  // Routes `message` by its type and the process's situation. `function` and
  // `line` name the caller and are accepted but written nowhere. Never fails.
  static void logType(VNLogType type, const char* function, int line, std::string_view message);
  // From now on every message goes to syslog only (once set, never cleared).
  static void forceUsingSyslog();
};
