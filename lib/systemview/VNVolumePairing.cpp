// Finding a volume's partner in its volume group.
#include "systemview/VNVolumePairing.h"

#include "platform/VNPlatformService.h"

namespace {

std::string_view volumeRoleFor(std::string_view role) {
  if (role == VNStorage::kDiskRoleSystem) return VNStorage::kVolumeRoleSystem;
  if (role == VNStorage::kDiskRoleData) return VNStorage::kVolumeRoleData;
  return role;
}

}  // namespace

VNStorageVolumeRef getPairedVolumeWithRole(const VNStorageVolumeRef& volume, std::string_view role) {
  if (!volume) return nullptr;
  std::string_view wanted = volumeRoleFor(role);
  if (volume->volumeRole == wanted || !volume->volumeGroup) return nullptr;
  for (const VNStorageVolumeRef& other : VNPlatformSlot<VNStorageService>::get()->groupVolumes(*volume))
    if (other->volumeGroup == volume->volumeGroup && other->volumeRole == wanted) return other;
  return nullptr;
}

bool isCaseSensitive(const VNStorageVolumeRef& volume) {
  if (!volume) return true;
  bool systemOrSnapshot = volume->diskRole == VNStorage::kDiskRoleSystem || volume->diskRole == VNStorage::kDiskRoleSnapshot;
  if (systemOrSnapshot && volume->isSubvolume) {
    if (VNStorageVolumeRef partner = getPairedVolumeWithRole(volume, VNStorage::kDiskRoleData))
      return partner->caseSensitive;
  }
  return volume->caseSensitive;
}
