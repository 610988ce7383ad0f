#pragma once

#include <optional>
#include <string>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

class VNSystem_FileManagerProtocol;

// The computer name and model of the running system, or of another system
// seen through a target-system view, and the device type of that model
// (docs/host-identity.md). A system counts as the running one when it is
// null or when its root is "/".
class VN_EXPORT VNSystemConfiguration {
 public:
  VNSystemConfiguration() = delete;

  // The target's network-configuration preferences dictionary, or nothing
  // (also for a null system).
  static std::optional<VNValue> systemConfigurationForSystem(VNSystem_FileManagerProtocol* system);
  static std::optional<std::string> systemNameForSystem(VNSystem_FileManagerProtocol* system);
  static std::optional<std::string> modelIDForSystem(VNSystem_FileManagerProtocol* system);
  // The device-type identifier of the system's model.
  static std::optional<std::string> modelForSystem(VNSystem_FileManagerProtocol* system);
  // The readable description of that device type.
  static std::optional<std::string> humanReadableModelForSystem(VNSystem_FileManagerProtocol* system);
};
