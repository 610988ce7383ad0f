#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/VNExport.h"

class VNError;

// The mount table of the calling process's mount namespace, and the path
// queries built on it. The Linux implementation reads /proc/self/mountinfo
// through libmount and tells mounts apart by the mount id statx reports, so a
// bind mount is never mistaken for the volume it shows.
class VN_EXPORT VNMountTable {
 public:
  virtual ~VNMountTable() = default;

  // The mount point of the volume that holds the item at `path` (a final
  // symbolic link is followed, as statfs does). Null with an error when the
  // item cannot be examined or its mount is not in the table.
  virtual std::optional<std::string> mountPointOfPath(const std::string& path,
                                                      VNError* error = nullptr) = 0;

  // The path of the item open at `fd` as it lies on its own volume: when it
  // was reached through a bind mount of a folder, the path through the mount
  // of the whole volume instead, if that mount is visible and really shows
  // the same item; otherwise the path through the descriptor's own mount.
  virtual std::optional<std::string> volumePathOfDescriptor(int fd, VNError* error = nullptr) = 0;

  static std::shared_ptr<VNMountTable> makeDefault();
};
