#pragma once

#include <string>

#include "platform/VNStorageUsage.h"

// The Linux pieces of VNStorageUsage, shared by its single-item reads and its
// folder walk.
namespace VNStorageProbe {

// Whether the file system holding `fd` can clone (btrfs, XFS).
bool fileSystemCanClone(int fd);

// The values of `name` in the folder `dirFd`: one statx, never following a
// link, plus the extents of a regular file with blocks when `canClone`.
// `listedRegular` tells that the folder's listing gave it as a regular file.
// Unknown values when statx fails.
VNStorageValues read(int dirFd, const char* name, bool canClone, bool listedRegular);

// The values of the item at `path`, asking the file system whether it can
// clone. Unknown values when statx fails, with its errno in `*failure`.
VNStorageValues readItem(const std::string& path, int* failure);

// Walks the tree below `root`, as VNStorageUsage::walk promises.
void walk(const std::string& root, const VNStorageUsage::Visitor& visit,
          const VNStorageUsage::ErrorHandler& onError);

}  // namespace VNStorageProbe
