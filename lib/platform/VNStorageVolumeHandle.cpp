// The C handles over the storage service's volumes.
#include "platform/VNStorageVolumeHandle.h"

#include "platform/VNPlatformService.h"
#include "platform/VNStorageService.h"

namespace {

const char* textOrNull(const std::optional<std::string>& text) { return text ? text->c_str() : nullptr; }

}  // namespace

extern "C" {

VNStorageVolume* VNStorageVolumeCreateForPath(const char* path) {
  if (!path) return nullptr;
  VNStorageVolumeRef volume = VNPlatformSlot<VNStorageService>::get()->volumeForPath(path);
  return volume ? new VNStorageVolume(*volume) : nullptr;
}

void VNStorageVolumeFree(VNStorageVolume* volume) { delete volume; }

const char* VNStorageVolumeMountPoint(const VNStorageVolume* volume) {
  return volume ? textOrNull(volume->mountPoint) : nullptr;
}

const char* VNStorageVolumeRole(const VNStorageVolume* volume) {
  return volume ? textOrNull(volume->volumeRole) : nullptr;
}

}  // extern "C"
