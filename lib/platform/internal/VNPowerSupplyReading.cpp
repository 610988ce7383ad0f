#include "platform/internal/VNPowerSupplyReading.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace {

// Values the kernel gives in micro-units become milli-units; a result beyond
// the signed 32-bit range saturates, since readers take them as 32-bit
// integers.
std::int64_t saturated(double value) {
  constexpr double kMax = std::numeric_limits<std::int32_t>::max();
  constexpr double kMin = std::numeric_limits<std::int32_t>::min();
  if (std::isnan(value)) return 0;
  return static_cast<std::int64_t>(std::trunc(std::fmin(std::fmax(value, kMin), kMax)));
}

std::optional<std::int64_t> integerFile(const VNSupplyFiles& files, std::string_view name) {
  auto found = files.find(name);
  if (found == files.end()) return std::nullopt;
  return VNSysfsInteger(found->second);
}

std::string_view wordFile(const VNSupplyFiles& files, std::string_view name) {
  auto found = files.find(name);
  if (found == files.end()) return {};
  std::string_view word = found->second;
  if (word.ends_with('\n')) word.remove_suffix(1);
  return word;
}

// The battery's figures in milli-units, whether the kernel counts charge
// (microampere-hours, microamperes) or energy (microwatt-hours, microwatts,
// turned into charge at the design's minimum voltage, else the present one).
struct Figures {
  std::optional<double> now, full, design, current, voltage;
};

std::optional<double> milli(std::optional<std::int64_t> micro) {
  if (!micro) return std::nullopt;
  return static_cast<double>(*micro) / 1000.0;
}

Figures figuresOf(const VNSupplyFiles& battery) {
  Figures figures;
  figures.voltage = milli(integerFile(battery, "voltage_now"));
  auto charge = [&](std::string_view chargeName, std::string_view energyName) -> std::optional<double> {
    if (auto value = milli(integerFile(battery, chargeName))) return value;
    auto energy = milli(integerFile(battery, energyName));
    auto volts = milli(integerFile(battery, "voltage_min_design"));
    if (!volts || *volts <= 0) volts = figures.voltage;
    if (!energy || !volts || *volts <= 0) return std::nullopt;
    return *energy * 1000.0 / *volts;  // mWh / mV = Ah, so times 1000 for mAh
  };
  figures.now = charge("charge_now", "energy_now");
  figures.full = charge("charge_full", "energy_full");
  figures.design = charge("charge_full_design", "energy_full_design");
  figures.current = charge("current_now", "power_now");
  if (figures.current) figures.current = std::fabs(*figures.current);
  return figures;
}

// Minutes to empty or to full: the kernel's own figure when it gives one,
// else the charge left (or missing) over the present current.
std::optional<std::int64_t> minutesFor(const VNSupplyFiles& battery, const Figures& figures,
                                       bool charging) {
  if (auto seconds = integerFile(battery, charging ? "time_to_full_now" : "time_to_empty_now"))
    return saturated(static_cast<double>(*seconds) / 60.0);
  if (!figures.current || *figures.current <= 0 || !figures.now) return std::nullopt;
  if (!charging) return saturated(*figures.now / *figures.current * 60.0);
  if (!figures.full) return std::nullopt;
  return saturated(std::fmax(*figures.full - *figures.now, 0.0) / *figures.current * 60.0);
}

void setIf(VNValue& dictionary, std::string_view key, std::optional<double> value) {
  if (value) dictionary.set(key, VNValue(saturated(*value)));
}

}  // namespace

const std::vector<std::string>& VNSupplyAttributeNames() {
  static const std::vector<std::string> names{
      "type", "scope", "present", "online", "status", "capacity", "charge_now", "charge_full",
      "charge_full_design", "energy_now", "energy_full", "energy_full_design", "current_now",
      "power_now", "voltage_now", "voltage_min_design", "cycle_count", "time_to_empty_now",
      "time_to_full_now"};
  return names;
}

std::optional<std::int64_t> VNSysfsInteger(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

bool VNSupplyIsSystemBattery(const VNSupplyFiles& files) {
  return wordFile(files, "type") == "Battery" && wordFile(files, "scope") != "Device";
}

bool VNSupplyIsActiveBattery(const VNSupplyFiles& files) {
  return VNSupplyIsSystemBattery(files) && integerFile(files, "present").value_or(1) != 0;
}

bool VNExternalPowerConnected(const std::vector<VNSupply>& supplies) {
  bool sawAdapter = false;
  for (const auto& supply : supplies) {
    if (wordFile(supply.files, "type") == "Battery") continue;
    sawAdapter = true;
    if (integerFile(supply.files, "online") == 1) return true;
  }
  if (sawAdapter) return false;
  for (const auto& supply : supplies)
    if (VNSupplyIsSystemBattery(supply.files) && wordFile(supply.files, "status") != "Discharging")
      return true;
  return false;
}

VNValue VNBatteryRegistryProperties(const VNSupplyFiles& battery, bool externalPower) {
  const Figures figures = figuresOf(battery);
  const std::string_view status = wordFile(battery, "status");
  VNValue properties = VNValue::dictionary();
  setIf(properties, "CurrentCapacity", figures.now);
  setIf(properties, "MaxCapacity", figures.full);
  setIf(properties, "DesignCapacity", figures.design);
  setIf(properties, "Voltage", figures.voltage);
  if (figures.current)
    setIf(properties, "Amperage", status == "Discharging" ? -*figures.current : *figures.current);
  if (auto cycles = integerFile(battery, "cycle_count")) setIf(properties, "CycleCount", *cycles);
  properties.set("ExternalConnected", VNValue(externalPower ? 1 : 0));
  properties.set("IsCharging", VNValue(status == "Charging" ? 1 : 0));
  if (status == "Charging" || status == "Discharging")
    if (auto minutes = minutesFor(battery, figures, status == "Charging"))
      properties.set("TimeRemaining", VNValue(*minutes));
  return properties;
}

VNValue VNBatteryDescription(const VNSupplyFiles& battery, bool externalPower) {
  const Figures figures = figuresOf(battery);
  const std::string_view status = wordFile(battery, "status");
  VNValue description = VNValue::dictionary();
  description.set("Power Source State", VNValue(externalPower ? "AC Power" : "Battery Power"));
  if (auto percent = integerFile(battery, "capacity"))
    setIf(description, "Current Capacity", static_cast<double>(*percent));
  else if (figures.now && figures.full && *figures.full > 0)
    setIf(description, "Current Capacity", std::round(*figures.now * 100.0 / *figures.full));
  const bool charging = status == "Charging", draining = status == "Discharging";
  auto minutes = [&](bool applies, bool toFull) -> VNValue {
    if (!applies) return VNValue(0);
    return VNValue(minutesFor(battery, figures, toFull).value_or(-1));
  };
  description.set("Time to Empty", minutes(draining, false));
  description.set("Time to Full Charge", minutes(charging, true));
  return description;
}
