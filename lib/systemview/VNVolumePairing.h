#pragma once

// Finding a volume's partner in its volume group, and the case sensitivity of
// a system's file names. Both are exported C functions (unmangled, callable
// from C), with C++ overloads over the storage service's shared volumes.
//
// From C++, with the volume that holds a system root:
//   VNStorageVolumeRef volume = VNPlatformSlot<VNStorageService>::get()->volumeForPath(root);
//   VNStorageVolumeRef data = getPairedVolumeWithRole(volume, "data");
//   if (data && data->mountPoint) use(*data->mountPoint);  // unmounted: no mount point
//   bool sensitive = isCaseSensitive(volume);
// From C, the same through owned handles (platform/VNStorageVolumeHandle.h):
//   VNStorageVolume* volume = VNStorageVolumeCreateForPath(root);
//   VNStorageVolume* data = getPairedVolumeWithRole(volume, "data");
//   const char* at = VNStorageVolumeMountPoint(data);  // NULL: none or unmounted
//   VNStorageVolumeFree(data);
//   VNStorageVolumeFree(volume);
//
// The role is a volume role ("system", "data") or a disk role ("system-disk",
// "data-disk", which stand for those volume roles). The partner is the first
// volume of the container, in the container's order, in the same volume group
// with that volume role. There is none when the volume has no group, or when
// the volume itself has the role: a volume is never its own partner.

#include <stdbool.h>

#include "foundation/VNExport.h"
#include "platform/VNStorageVolumeHandle.h"

#ifdef __cplusplus
extern "C" {
#endif

// The partner of `volume` with `role`, a new volume the caller frees, or NULL
// (also for a NULL volume or role).
VN_EXPORT VNStorageVolume* getPairedVolumeWithRole(const VNStorageVolume* volume, const char* role);
// Whether file names on `volume` are case-sensitive; a system volume or a
// snapshot answers with its data partner's, when it has one. True for NULL.
VN_EXPORT bool isCaseSensitive(const VNStorageVolume* volume);

#ifdef __cplusplus
}  // extern "C"

#include <string_view>

#include "platform/VNStorageService.h"

VN_EXPORT VNStorageVolumeRef getPairedVolumeWithRole(const VNStorageVolumeRef& volume, std::string_view role);
VN_EXPORT bool isCaseSensitive(const VNStorageVolumeRef& volume);
#endif
