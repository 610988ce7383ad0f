#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/VNValue.h"

// How the files of one kernel power supply become the registry properties of
// a battery controller and the description the power-source service gives;
// docs/battery.md has the rules. Pure functions over file contents, so that
// unit tests and the fuzz target reach them without a sysfs tree.

// The attribute files read from a supply folder, by name. A file that is
// missing or unreadable is not in the map.
using VNSupplyFiles = std::map<std::string, std::string, std::less<>>;

struct VNSupply {
  std::string name;
  VNSupplyFiles files;
};

// The names of the attribute files that the rules below read.
const std::vector<std::string>& VNSupplyAttributeNames();

// One decimal integer, signed or not, with at most one trailing newline;
// nothing for anything else (empty, garbage, beyond 64 bits).
std::optional<std::int64_t> VNSysfsInteger(std::string_view text);

// A battery of the system itself (type "Battery", scope not "Device").
bool VNSupplyIsSystemBattery(const VNSupplyFiles& files);
// A system battery whose "present" is not 0 (a missing file counts as present).
bool VNSupplyIsActiveBattery(const VNSupplyFiles& files);
// Whether the host runs on external power: some supply that is not a battery
// reports "online" 1; with no such supply at all, whether some system battery
// is not "Discharging".
bool VNExternalPowerConnected(const std::vector<VNSupply>& supplies);

VNValue VNBatteryRegistryProperties(const VNSupplyFiles& battery, bool externalPower);
VNValue VNBatteryDescription(const VNSupplyFiles& battery, bool externalPower);
