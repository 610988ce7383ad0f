#pragma once

#include <cstdint>
#include <string>

#include "foundation/VNExport.h"

// Sends POSIX signals to processes by name or identifier. Each attempt is
// logged at the fault type, and the log line is its only outcome. Processes
// are found by the platform's VNProcessLookup (see there for how names
// match). Identifiers of 0 and below are never signalled, so a call can
// never address a process group or every process.
class VN_EXPORT VNToolBox {
 public:
  VNToolBox() = delete;

  static void sendSignal(std::int32_t signal, const std::string& processName, std::int32_t pid);
  // Signals the one process the lookup picks for the name.
  static void sendSignal(std::int32_t signal, const std::string& processName);
  // Signals every process of the name, in the lookup's order.
  static void sendSignalToAllProcesses(std::int32_t signal, const std::string& processName);
};
