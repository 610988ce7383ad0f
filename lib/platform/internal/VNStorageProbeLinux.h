#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/VNStorageUsage.h"

// The Linux pieces of VNStorageUsage, shared by its single-item reads and its
// folder walk.
using VNCloneDomain = std::optional<std::uint64_t>;

namespace VNStorageProbe {

// Where extents can be shared: one file system that clones, named by a value
// taken from its UUID (btrfs, all subvolumes alike) or its f_fsid (XFS).
// None on file systems that do not clone.
VNCloneDomain cloneDomain(int fd);

// The values of `name` in the folder `dirFd`: one statx, never following a
// link, plus the extents of a regular file with blocks in a clone `domain`.
// `listedRegular` tells that the folder's listing gave it as a regular file.
// Unknown values when statx fails.
VNStorageValues read(int dirFd, const char* name, const VNCloneDomain& domain, bool listedRegular);

// The values of the item at `path`, asking the file system whether it can
// clone. Unknown values when statx fails, with its errno in `*failure`.
VNStorageValues readItem(const std::string& path, int* failure);

// Walks the tree below `root`, as VNStorageUsage::walk promises.
void walk(const std::string& root, const VNStorageUsage::Visitor& visit,
          const VNStorageUsage::ErrorHandler& onError);

}  // namespace VNStorageProbe
