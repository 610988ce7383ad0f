// varnel volumes: the volumes of a btrfs file system with their roles, and
// making a pair of a system and a data volume.
#include <cstdio>

#include "Command.h"
#include "foundation/VNError.h"
#include "foundation/VNValue.h"
#include "platform/VNPlatformService.h"
#include "platform/VNStorageService.h"

namespace varnel {
namespace {

CLI::App* volumesCommand(CLI::App& app) {
  return commandGroup(app, "volumes", "List volume pairs on btrfs and make new ones");
}

struct ListOptions {
  std::string path = "/";
  bool json = false;
};

VNValue describe(const VNStorageVolume& volume) {
  VNValue entry = VNValue::dictionary();
  entry.set("path", volume.pathInContainer);
  entry.set("diskType", volume.diskType);
  if (volume.volumeRole) entry.set("role", *volume.volumeRole);
  if (volume.diskRole) entry.set("diskRole", *volume.diskRole);
  if (volume.volumeGroup) entry.set("group", *volume.volumeGroup);
  if (volume.mountPoint) entry.set("mountPoint", *volume.mountPoint);
  entry.set("readOnly", volume.readOnly);
  entry.set("caseSensitive", volume.caseSensitive);
  return entry;
}

std::string text(const VNValue& entry, const char* key) {
  const std::string* value = entry.findString(key);
  return value ? quotedName(*value) : "-";
}

int runList(const ListOptions& options) {
  auto service = VNPlatformSlot<VNStorageService>::get();
  VNStorageVolumeRef volume = service->volumeForPath(options.path);
  if (!volume) {
    printError(VNError::posix(ENOENT, options.path, "find the volume holding"));
    return kExitFailed;
  }
  VNValue::Array entries;
  for (const VNStorageVolumeRef& each : service->containerVolumes(*volume)) entries.push_back(describe(*each));
  if (options.json) {
    printJSON(VNValue(std::move(entries)));
    return kExitOK;
  }
  std::printf("%-24s %-7s %-36s %-4s %-5s %s\n", "PATH", "ROLE", "GROUP", "RO", "CASE", "MOUNTED AT");
  for (const VNValue& entry : entries)
    std::printf("%-24s %-7s %-36s %-4s %-5s %s\n", text(entry, "path").c_str(), text(entry, "role").c_str(),
                text(entry, "group").c_str(), *entry.find("readOnly")->asBoolean() ? "yes" : "no",
                *entry.find("caseSensitive")->asBoolean() ? "yes" : "no", text(entry, "mountPoint").c_str());
  return kExitOK;
}

int runCreatePair(const VNVolumePairRequest& request, bool json) {
  VNError error;
  std::optional<VNVolumePair> pair = VNMakeVolumePair(request, &error);
  if (!pair) {
    printError(error);
    return kExitFailed;
  }
  if (json) {
    VNValue summary = VNValue::dictionary();
    summary.set("group", pair->group);
    summary.set("system", pair->systemPath);
    summary.set("data", pair->dataPath);
    printJSON(summary);
  } else {
    std::printf("group %s: system volume %s, data volume %s\n", pair->group.c_str(),
                quotedName(pair->systemPath).c_str(), quotedName(pair->dataPath).c_str());
  }
  return kExitOK;
}

CommandRegistration list("volumes list", [](CLI::App& app, int& status) {
  auto* command = volumesCommand(app)->add_subcommand("list", "List the volumes of the file system holding PATH");
  auto options = std::make_shared<ListOptions>();
  command->add_option("PATH", options->path, "Any path on the file system (default: /)");
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runList(*options); });
});

CommandRegistration createPair("volumes create-pair", [](CLI::App& app, int& status) {
  auto* command = volumesCommand(app)->add_subcommand(
      "create-pair", "Make a system and a data volume of one new group on a device or image file");
  auto request = std::make_shared<VNVolumePairRequest>();
  auto json = std::make_shared<bool>(false);
  command->add_option("DEVICE", request->device, "Block device or image file")->required();
  command->add_flag("--reuse", request->reuse, "Use a device that already holds a file system");
  command->add_flag("--read-only-system", request->readOnlySystem, "Make the system volume read-only");
  command->add_option("--system-name", request->systemName, "Name of the system subvolume (default: @system)");
  command->add_option("--data-name", request->dataName, "Name of the data subvolume (default: @data)");
  command->add_flag("--json", *json, "Print the result as JSON");
  command->callback([request, json, &status] { status = runCreatePair(*request, *json); });
});

}  // namespace
}  // namespace varnel
