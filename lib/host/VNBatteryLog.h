#pragma once

#include <memory>
#include <string>

#include "common/VNLogging.h"
#include "foundation/VNExport.h"
#include "platform/VNPowerSources.h"

// Writes one line about the host's battery and power source to the library's
// log (type 2): power source, charging state, charge and capacity figures,
// health against the design capacity, power drawn, and the remaining time and
// percentage the power-source service reports. Returns true once the line is
// logged; false, with a type 0 message instead, when the battery controllers
// cannot be searched, the power sources cannot be read, or no battery is
// active. docs/battery.md tells where each figure comes from on Linux.
VN_EXTERN_C VN_EXPORT bool logBatteryState(void);

// What logBatteryState logged: the line, or the failure's message.
struct VNBatteryLogResult {
  bool logged = false;
  VNLogType type = VNLogTypeError;
  std::string message;
};

// logBatteryState, returning the message it logged as well, and reading
// `sources` (null: the process's power-source service).
VN_EXPORT VNBatteryLogResult VNLogBatteryStateReport(std::shared_ptr<VNPowerSources> sources = nullptr);
