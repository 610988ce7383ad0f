// Finding a volume's partner in its volume group.
#include "systemview/VNVolumePairing.h"

#include "platform/VNPlatformService.h"

namespace {

std::string_view volumeRoleFor(std::string_view role) {
  if (role == VNStorage::kDiskRoleSystem) return VNStorage::kVolumeRoleSystem;
  if (role == VNStorage::kDiskRoleData) return VNStorage::kVolumeRoleData;
  return role;
}

VNStorageVolumeRef partnerOf(const VNStorageVolume& volume, std::string_view role) {
  std::string_view wanted = volumeRoleFor(role);
  if (volume.volumeRole == wanted || !volume.volumeGroup) return nullptr;
  for (const VNStorageVolumeRef& other : VNPlatformSlot<VNStorageService>::get()->groupVolumes(volume))
    if (other->volumeGroup == volume.volumeGroup && other->volumeRole == wanted) return other;
  return nullptr;
}

bool caseSensitivityOf(const VNStorageVolume& volume) {
  bool systemOrSnapshot = volume.diskRole == VNStorage::kDiskRoleSystem || volume.diskRole == VNStorage::kDiskRoleSnapshot;
  if (systemOrSnapshot && volume.isSubvolume) {
    if (VNStorageVolumeRef partner = partnerOf(volume, VNStorage::kDiskRoleData)) return partner->caseSensitive;
  }
  return volume.caseSensitive;
}

}  // namespace

VNStorageVolumeRef getPairedVolumeWithRole(const VNStorageVolumeRef& volume, std::string_view role) {
  return volume ? partnerOf(*volume, role) : nullptr;
}

bool isCaseSensitive(const VNStorageVolumeRef& volume) { return volume ? caseSensitivityOf(*volume) : true; }

extern "C" {

VNStorageVolume* getPairedVolumeWithRole(const VNStorageVolume* volume, const char* role) {
  if (!volume || !role) return nullptr;
  VNStorageVolumeRef partner = partnerOf(*volume, role);
  return partner ? new VNStorageVolume(*partner) : nullptr;
}

bool isCaseSensitive(const VNStorageVolume* volume) { return volume ? caseSensitivityOf(*volume) : true; }

}  // extern "C"
