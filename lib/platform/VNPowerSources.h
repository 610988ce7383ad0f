#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// The battery controllers' registry entries and the power-source service, as
// the battery log reads them. Property and entry names, and how each is
// derived from the kernel's power-supply class, are in docs/battery.md.
class VN_EXPORT VNPowerSources {
 public:
  // A snapshot of the power sources: whether one of them is an active
  // battery and, if so, its description dictionary (absent when the battery
  // vanished or could not be read after it was found).
  struct Snapshot {
    bool hasActiveBattery = false;
    std::optional<VNValue> activeBatteryDescription;
  };

  virtual ~VNPowerSources() = default;

  // The property dictionary of every battery controller, in a stable order;
  // an entry whose properties cannot be read is nullopt. Nothing when the
  // controllers cannot be searched at all.
  virtual std::optional<std::vector<std::optional<VNValue>>> batteryControllers() = 0;
  // A fresh snapshot; nothing when the power sources cannot be read.
  virtual std::optional<Snapshot> copySnapshot() = 0;

  // Reads the power-supply class under "/sys".
  static std::shared_ptr<VNPowerSources> makeDefault();
  // Reads the power-supply class under `sysfsRoot` instead of "/sys", for
  // tests that lay out a fake tree.
  static std::shared_ptr<VNPowerSources> makeForSysfsRoot(std::string sysfsRoot);
};
