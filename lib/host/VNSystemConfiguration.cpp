#include "host/VNSystemConfiguration.h"

#include "common/VNLogging.h"
#include "foundation/VNFormat.h"
#include "platform/VNHostIdentity.h"
#include "platform/VNPlatformService.h"
#include "platform/VNTypeService.h"
#include "systemview/VNSystem_FileManagerProtocol.h"

namespace {

// Where a system keeps its network-configuration preferences, in the order
// tried. The older place lives below "/private"; a Linux system has no
// "/private", so the same path without it is tried last.
constexpr const char* kPreferencePaths[] = {
    "/Library/Preferences/SystemConfiguration/preferences.plist",
    "/private/var/db/SystemConfiguration/preferences.xml",
    "/var/db/SystemConfiguration/preferences.xml",
};

bool isRunningSystem(VNSystem_FileManagerProtocol* system) {
  if (!system) return true;
  auto root = system->slash();
  return root && root->path() == "/";
}

std::optional<std::string> stringAt(const VNValue& dictionary, std::initializer_list<std::string_view> keys) {
  const VNValue* value = &dictionary;
  for (std::string_view key : keys)
    if (!(value = value->find(key))) return std::nullopt;
  if (const std::string* text = value->asString()) return *text;
  return std::nullopt;
}

std::shared_ptr<VNTypeService> types() { return VNPlatformSlot<VNTypeService>::get(); }

}  // namespace

std::optional<VNValue> VNSystemConfiguration::systemConfigurationForSystem(VNSystem_FileManagerProtocol* system) {
  if (!system) return std::nullopt;
  for (const char* targetPath : kPreferencePaths) {
    bool exists = false;
    auto url = system->pathToRemoteFile(VNFileURL::fileURLWithPath(targetPath), &exists, true);
    if (!url || !exists) continue;
    auto dictionary = VNValue::fromPropertyListFile(url->path());
    if (!dictionary || dictionary->kind() != VNValue::Kind::Dictionary) {
      VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                         VNFormat("Unable to read the System Configuration file at %@", url->path()));
      return std::nullopt;
    }
    return dictionary;
  }
  return std::nullopt;
}

std::optional<std::string> VNSystemConfiguration::systemNameForSystem(VNSystem_FileManagerProtocol* system) {
  if (isRunningSystem(system)) return VNPlatformSlot<VNHostIdentity>::get()->computerName();
  auto preferences = systemConfigurationForSystem(system);
  return preferences ? stringAt(*preferences, {"System", "System", "ComputerName"}) : std::nullopt;
}

std::optional<std::string> VNSystemConfiguration::modelIDForSystem(VNSystem_FileManagerProtocol* system) {
  if (isRunningSystem(system)) return VNPlatformSlot<VNHostIdentity>::get()->modelIdentifier();
  auto preferences = systemConfigurationForSystem(system);
  return preferences ? stringAt(*preferences, {"Model"}) : std::nullopt;
}

std::optional<std::string> VNSystemConfiguration::modelForSystem(VNSystem_FileManagerProtocol* system) {
  if (isRunningSystem(system)) return types()->deviceTypeIdentifier(std::nullopt);
  auto model = modelIDForSystem(system);
  return types()->deviceTypeIdentifier(model ? std::optional<std::string_view>(*model) : std::string_view());
}

std::optional<std::string> VNSystemConfiguration::humanReadableModelForSystem(VNSystem_FileManagerProtocol* system) {
  auto type = modelForSystem(system);
  if (!type) return std::nullopt;
  return types()->deviceTypeDescription(*type);
}
