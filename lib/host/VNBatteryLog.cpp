#include "host/VNBatteryLog.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "foundation/VNFormat.h"
#include "platform/VNPlatformService.h"
#include "platform/VNPowerSources.h"

namespace {

constexpr const char* kFunction = "BOOL logBatteryState(void)";
constexpr const char* kLineFormat =
    "powerSource='%@' chargingState='%@' percentRemainingHW=%.0f%% minutesRemainingHW=%d \t\t  "
    "currentCapacity=%dmAh maxCapacity=%dmAh health=%.2f%% designedCapacity=%dmAh \t\t  "
    "cycles=%d voltage=%dmV amperage=%dmA watt=%.3f marketingMinutes=%@ marketingPercent=%@%%";

// A property read as a 32-bit integer: missing or not a number reads as 0,
// a number beyond the range saturates.
std::int32_t int32Of(const VNValue* value) {
  auto number = value ? value->asReal() : std::nullopt;
  if (!number || std::isnan(*number)) return 0;
  constexpr double kMax = std::numeric_limits<std::int32_t>::max();
  constexpr double kMin = std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(std::trunc(std::fmin(std::fmax(*number, kMin), kMax)));
}

std::int32_t int32Of(const VNValue& properties, std::string_view key) {
  return int32Of(properties.find(key));
}

float floatOf(const VNValue& properties, std::string_view key) {
  const VNValue* value = properties.find(key);
  auto number = value ? value->asReal() : std::nullopt;
  return number ? static_cast<float>(*number) : 0.0f;
}

// A single-precision figure truncated toward zero to a 32-bit integer,
// saturating beyond the range.
std::int32_t truncatedFloatOf(const VNValue& properties, std::string_view key) {
  const VNValue single(static_cast<double>(floatOf(properties, key)));
  return int32Of(&single);
}

struct Working {
  std::int32_t powerSource = -1;
  std::int32_t chargingState = -255;
  float percentRemainingHW = -1.0f;
  std::int32_t minutesRemainingHW = -255;
  std::int32_t currentCapacity = -1;
  std::int32_t maxCapacity = -1;
  float health = 0.0f;
  std::int32_t designedCapacity = 0;
  std::int32_t cycles = 0;
  std::int32_t voltage = 0;
  std::int32_t amperage = 0;
  float watt = 0.0f;
};

void applyPowerState(Working& w, const VNValue& p, const VNValue& minutes, const VNValue& percent) {
  const std::int32_t m = int32Of(&minutes);
  if (int32Of(p, "ExternalConnected") == 1) {
    w.powerSource = 1;
    if (m >= 0) {
      w.minutesRemainingHW = int32Of(p, "TimeRemaining");
      w.chargingState = int32Of(&percent) == 100 ? -2 : 1;
    } else if (int32Of(p, "IsCharging") != 0) {
      w.chargingState = 1;
      w.minutesRemainingHW = -1;
    } else {
      w.chargingState = 0;
      w.minutesRemainingHW = -2;
    }
  } else {
    w.powerSource = 0;
    w.chargingState = 2;
    w.minutesRemainingHW = m >= 0 ? int32Of(p, "TimeRemaining") : -1;
  }
}

void applyEntry(Working& w, const VNValue& p, const VNValue& minutes, const VNValue& percent) {
  w.currentCapacity = truncatedFloatOf(p, "CurrentCapacity");
  w.maxCapacity = truncatedFloatOf(p, "MaxCapacity");
  if (int32Of(p, "MaxCapacity") > 0 && w.maxCapacity > 0)
    w.percentRemainingHW = static_cast<float>(
        static_cast<std::int32_t>(static_cast<std::int64_t>(w.currentCapacity) * 100 / w.maxCapacity));
  w.designedCapacity = int32Of(p, "DesignCapacity");
  if (w.designedCapacity > 0) {
    w.health = static_cast<float>(w.maxCapacity) / static_cast<float>(w.designedCapacity) * 100.0f;
    if (w.health > 100.0f) w.health = 100.0f;
  }
  w.amperage = int32Of(p, "Amperage");
  w.voltage = int32Of(p, "Voltage");
  w.watt = (floatOf(p, "Amperage") / -1000.0f) * (floatOf(p, "Voltage") / 1000.0f);
  w.cycles = int32Of(p, "CycleCount");
  applyPowerState(w, p, minutes, percent);
}

const char* powerSourceWord(std::int32_t code) {
  return code == 0 ? "Battery" : code == 1 ? "Power Adapter" : "Unknown";
}

const char* chargingWord(std::int32_t code) {
  return code == 1 ? "Charging" : code == 2 ? "Draining" : "Charged";
}

std::string batteryLine(const Working& w, const VNValue& minutes, const VNValue& percent) {
  return VNFormat(kLineFormat, powerSourceWord(w.powerSource), chargingWord(w.chargingState),
                  static_cast<double>(w.percentRemainingHW), w.minutesRemainingHW, w.currentCapacity,
                  w.maxCapacity, static_cast<double>(w.health), w.designedCapacity, w.cycles,
                  w.voltage, w.amperage, static_cast<double>(w.watt), minutes, percent);
}

VNBatteryLogResult failure(const char* message) { return {false, VNLogTypeError, message}; }

VNBatteryLogResult batteryReport(VNPowerSources& sources) {
  auto controllers = sources.batteryControllers();
  if (!controllers) return failure("Battery Log: Failed to find matching service name");
  auto snapshot = sources.copySnapshot();
  if (!snapshot) return failure("Battery Log: Failed to Copy Power Source Info");
  if (!snapshot->hasActiveBattery) return failure("Battery Log: Failed to get power source description");

  VNValue minutes(-1), percent(-1);
  if (const auto& description = snapshot->activeBatteryDescription) {
    const VNValue* state = description->find("Power Source State");
    const bool onBattery = state && state->asString() && *state->asString() == "Battery Power";
    const VNValue* found = description->find(onBattery ? "Time to Empty" : "Time to Full Charge");
    minutes = found ? *found : VNValue();
    const VNValue* capacity = description->find("Current Capacity");
    percent = capacity ? *capacity : VNValue();
  }
  Working working;
  for (const auto& entry : *controllers)
    if (entry) applyEntry(working, *entry, minutes, percent);
  return {true, VNLogTypeDefault, batteryLine(working, minutes, percent)};
}

}  // namespace

VNBatteryLogResult VNLogBatteryStateReport(std::shared_ptr<VNPowerSources> sources) {
  if (!sources) sources = VNPlatformSlot<VNPowerSources>::get();
  VNBatteryLogResult result = batteryReport(*sources);
  VNLogging::logType(result.type, kFunction, __LINE__, result.message);
  return result;
}

bool logBatteryState(void) { return VNLogBatteryStateReport().logged; }
