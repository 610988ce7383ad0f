#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/VNExport.h"

class VNError;

// Names of the storage service (docs/volumes.md). A container is one btrfs
// file system, a volume one of its subvolumes.
namespace VNStorage {
// The disk type of a volume that is a btrfs subvolume.
inline constexpr const char* kDiskTypeSubvolume = "btrfs-subvolume";
// Volume roles, recorded on a subvolume.
inline constexpr const char* kVolumeRoleSystem = "system";
inline constexpr const char* kVolumeRoleData = "data";
// Disk roles, the second vocabulary: what a volume serves as, derived from
// its volume role, or a snapshot whatever its role.
inline constexpr const char* kDiskRoleSystem = "system-disk";
inline constexpr const char* kDiskRoleData = "data-disk";
inline constexpr const char* kDiskRoleSnapshot = "snapshot-disk";
// Where a subvolume's role and volume group are recorded: extended
// attributes of its root folder.
inline constexpr const char* kRoleAttribute = "trusted.varnel.volume-role";
inline constexpr const char* kGroupAttribute = "trusted.varnel.volume-group";
}  // namespace VNStorage

// One volume as the storage service saw it when asked.
struct VN_EXPORT VNStorageVolume {
  // "<file-system UUID>:<subvolume id>" for a subvolume; "<device>" else.
  std::string identifier;
  // The file system's UUID: volumes with the same one share a container.
  std::string containerIdentifier;
  // kDiskTypeSubvolume, or the file-system type ("ext4", "xfs", "tmpfs").
  std::string diskType;
  // The subvolume's path from the top of its file system ("/" for the top).
  std::string pathInContainer;
  std::optional<std::string> volumeRole;
  std::optional<std::string> diskRole;
  std::optional<std::string> volumeGroup;
  // Where the volume itself is mounted (the first such mount), if it is.
  std::optional<std::string> mountPoint;
  bool readOnly = false;
  bool caseSensitive = true;
  // Whether it is a btrfs subvolume: one of the volumes this service pairs.
  bool isSubvolume = false;
};

using VNStorageVolumeRef = std::shared_ptr<const VNStorageVolume>;

// Knows the host's btrfs file systems and their subvolumes. Reading roles
// needs CAP_SYS_ADMIN (trusted.* attributes); without it volumes have none.
class VN_EXPORT VNStorageService {
 public:
  virtual ~VNStorageService() = default;

  // The volume that holds the item at `path` (its links are followed); null
  // when it cannot be examined. Only folders are opened: a device node, FIFO
  // or socket is answered for through the folder holding it.
  virtual VNStorageVolumeRef volumeForPath(const std::string& path) = 0;
  // The volumes of `volume`'s container, ordered by subvolume id (the top of
  // the file system first); just `volume` itself when it is no subvolume.
  virtual std::vector<VNStorageVolumeRef> containerVolumes(const VNStorageVolume& volume) = 0;
  // The volumes of `volume`'s container in its volume group, in the same
  // order; none when it has no group. Cheaper than filtering
  // containerVolumes: the others' roles are never read.
  virtual std::vector<VNStorageVolumeRef> groupVolumes(const VNStorageVolume& volume) = 0;

  static std::shared_ptr<VNStorageService> makeDefault();
};

// What a new pair of volumes is made on: a block device or an image file.
struct VN_EXPORT VNVolumePairRequest {
  std::string device;
  // Use a device that already holds a file system (a btrfs one is kept and
  // the pair added to it; any other is overwritten).
  bool reuse = false;
  bool readOnlySystem = false;
  std::string systemName = "@system";
  std::string dataName = "@data";
};

struct VN_EXPORT VNVolumePair {
  std::string group;
  std::string systemPath;  // paths in the container
  std::string dataPath;
};

// Makes a system and a data subvolume of one new group on `request.device`
// (formatting it as btrfs when it holds no file system), records their
// roles and group, and marks the system volume read-only when asked. Refuses
// (EEXIST) a device holding a file system unless `reuse`. Needs root.
VN_EXPORT std::optional<VNVolumePair> VNMakeVolumePair(const VNVolumePairRequest& request, VNError* error);
