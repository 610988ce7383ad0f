#pragma once

#include <string_view>

#include "foundation/VNExport.h"
#include "platform/VNStorageService.h"

// The partner of `volume` with `role`, a volume role ("system", "data") or a
// disk role ("system-disk", "data-disk", which stand for those volume roles):
// the first volume of its container, in the container's order, in the same
// volume group with that volume role. Null when there is none, when
// `volume` has no group, or when `volume` itself has the role: a volume is
// never its own partner.
VN_EXPORT VNStorageVolumeRef getPairedVolumeWithRole(const VNStorageVolumeRef& volume, std::string_view role);

// Whether file names on `volume` are case-sensitive; a system volume or a
// snapshot answers with its data partner's, when it has one.
VN_EXPORT bool isCaseSensitive(const VNStorageVolumeRef& volume);
