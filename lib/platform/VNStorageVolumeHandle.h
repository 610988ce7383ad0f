#pragma once

// Volumes of the storage service for C callers: an owned, opaque copy of one
// volume as the service saw it (platform/VNStorageService.h is the C++ view
// of the same record). Every non-null volume returned here is the caller's
// and is released with VNStorageVolumeFree. Strings returned by the
// accessors live as long as their volume.

#include <stdbool.h>

#include "foundation/VNExport.h"

typedef struct VNStorageVolume VNStorageVolume;

#ifdef __cplusplus
extern "C" {
#endif

// The volume that holds the item at `path` (a final link is followed), or
// NULL when `path` is NULL or cannot be examined.
VN_EXPORT VNStorageVolume* VNStorageVolumeCreateForPath(const char* path);
// Releases `volume`; NULL is ignored.
VN_EXPORT void VNStorageVolumeFree(VNStorageVolume* volume);
// Where the volume itself is mounted, or NULL when it is not.
VN_EXPORT const char* VNStorageVolumeMountPoint(const VNStorageVolume* volume);
// Its volume role ("system", "data"), or NULL when it has none.
VN_EXPORT const char* VNStorageVolumeRole(const VNStorageVolume* volume);

#ifdef __cplusplus
}  // extern "C"
#endif
