// The storage service on btrfs: a file system is a container, each of its
// subvolumes a volume, with the role and group recorded on the subvolume.
#include <btrfsutil.h>
#include <fcntl.h>
#include <linux/btrfs_tree.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>

#include "foundation/VNUniqueFd.h"
#include "platform/VNMountTable.h"
#include "platform/VNPlatformService.h"
#include "platform/VNStorageService.h"
#include "platform/internal/VNBtrfsMounts.h"
#include "platform/internal/VNBtrfsSubvolumes.h"
#include "platform/internal/VNVolumeAttributes.h"

namespace {

using SubvolumeInfo = struct btrfs_util_subvolume_info;
constexpr std::uint64_t kTopSubvolume = 5;
#ifndef FS_CASEFOLD_FL
constexpr unsigned kCasefoldFlag = 0x40000000;
#else
constexpr unsigned kCasefoldFlag = FS_CASEFOLD_FL;
#endif

std::optional<std::string> diskRoleOf(const VNBtrfsSubvolume& subvolume, const std::optional<std::string>& role) {
  if (subvolume.isSnapshot) return VNStorage::kDiskRoleSnapshot;
  if (role == VNStorage::kVolumeRoleSystem) return VNStorage::kDiskRoleSystem;
  if (role == VNStorage::kVolumeRoleData) return VNStorage::kDiskRoleData;
  return std::nullopt;
}

// One subvolume, its attributes read through `reachable` when it is known.
VNStorageVolumeRef describeSubvolume(const std::string& uuid, const VNBtrfsSubvolume& subvolume,
                                     const std::vector<VNBtrfsMount>& mounts,
                                     const std::optional<std::string>& reachable) {
  auto volume = std::make_shared<VNStorageVolume>();
  volume->identifier = uuid + ":" + std::to_string(subvolume.id);
  volume->containerIdentifier = uuid;
  volume->diskType = VNStorage::kDiskTypeSubvolume;
  volume->pathInContainer = subvolume.path;
  volume->isSubvolume = true;
  volume->caseSensitive = true;
  volume->readOnly = subvolume.readOnly;
  volume->mountPoint = VNBtrfsMountPointOf(mounts, subvolume.path);
  if (reachable) {
    VNVolumeAttributes attributes = VNReadVolumeAttributes(*reachable);
    volume->volumeRole = attributes.role;
    volume->volumeGroup = attributes.group;
  }
  volume->diskRole = diskRoleOf(subvolume, volume->volumeRole);
  return volume;
}

// The subvolume holding `fd`.
std::optional<VNBtrfsSubvolume> subvolumeOf(int fd) {
  std::uint64_t id = 0;
  SubvolumeInfo info {};
  if (btrfs_util_subvolume_id_fd(fd, &id) != BTRFS_UTIL_OK ||
      btrfs_util_subvolume_info_fd(fd, id, &info) != BTRFS_UTIL_OK)
    return std::nullopt;
  VNBtrfsSubvolume subvolume{id, "/", (info.flags & BTRFS_ROOT_SUBVOL_RDONLY) != 0,
                             std::any_of(std::begin(info.parent_uuid), std::end(info.parent_uuid),
                                         [](std::uint8_t b) { return b != 0; })};
  if (id == kTopSubvolume) return subvolume;
  char* path = nullptr;
  if (btrfs_util_subvolume_path_fd(fd, id, &path) != BTRFS_UTIL_OK) return std::nullopt;
  subvolume.path = "/" + std::string(path);
  std::free(path);
  return subvolume;
}

// A volume of a file system that has no subvolumes.
VNStorageVolumeRef describePlainVolume(const std::string& path, int fd, const struct statfs& fs) {
  auto volume = std::make_shared<VNStorageVolume>();
  std::optional<std::string> mountPoint = VNPlatformSlot<VNMountTable>::get()->mountPointOfPath(path);
  volume->identifier = std::to_string(fs.f_fsid.__val[0]) + "-" + std::to_string(fs.f_fsid.__val[1]);
  volume->containerIdentifier = volume->identifier;
  volume->diskType = fs.f_type == EXT4_SUPER_MAGIC ? "ext4"
                     : fs.f_type == XFS_SUPER_MAGIC ? "xfs"
                     : fs.f_type == TMPFS_MAGIC     ? "tmpfs"
                                                    : "other";
  // Not `= "/"`: GCC 12 at -O3 reports a false -Wrestrict overlap for the
  // literal's copy once this function is inlined.
  volume->pathInContainer.assign(1, '/');
  volume->mountPoint = mountPoint;
  unsigned flags = 0;
  VNUniqueFd top(mountPoint ? ::open(mountPoint->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
  if (::ioctl(top ? top.get() : fd, FS_IOC_GETFLAGS, &flags) == 0) volume->caseSensitive = !(flags & kCasefoldFlag);
  return volume;
}

// The folder that is, or holds, what `path` names after all its links: the
// same volume, since a subvolume's boundary is always a folder. Nothing but a
// folder is ever opened, so a device node asked about is not acted on.
VNUniqueFd openFolderOf(const std::string& path) {
  std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  struct stat item {};
  if (!resolved || ::stat(resolved.get(), &item) != 0) return VNUniqueFd(-1);
  std::string folder = resolved.get();
  if (!S_ISDIR(item.st_mode)) folder.resize(std::max<std::size_t>(folder.rfind('/'), 1));
  return VNUniqueFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

class LinuxStorageService final : public VNStorageService {
 public:
  VNStorageVolumeRef volumeForPath(const std::string& path) override {
    VNUniqueFd fd = openFolderOf(path);
    struct statfs fs {};
    if (!fd || ::fstatfs(fd.get(), &fs) != 0) return nullptr;
    if (fs.f_type != BTRFS_SUPER_MAGIC) return describePlainVolume(path, fd.get(), fs);
    std::optional<std::string> uuid = VNBtrfsUUID(fd.get());
    std::optional<VNBtrfsSubvolume> subvolume = uuid ? subvolumeOf(fd.get()) : std::nullopt;
    if (!subvolume) return nullptr;
    std::vector<VNBtrfsMount> mounts = VNBtrfsMountsOf(*uuid);
    return describeSubvolume(*uuid, *subvolume, mounts, VNBtrfsReachablePath(mounts, subvolume->path));
  }

  std::vector<VNStorageVolumeRef> containerVolumes(const VNStorageVolume& volume) override {
    if (!volume.isSubvolume) return {std::make_shared<VNStorageVolume>(volume)};
    return describeContainer(volume, [](const std::optional<std::string>&) { return true; });
  }

  std::vector<VNStorageVolumeRef> groupVolumes(const VNStorageVolume& volume) override {
    if (!volume.isSubvolume || !volume.volumeGroup) return {};
    return describeContainer(volume, [&](const std::optional<std::string>& reachable) {
      return reachable && VNReadVolumeGroup(*reachable) == volume.volumeGroup;
    });
  }

 private:
  // Whether to describe a subvolume, given the path that reaches it.
  using Filter = std::function<bool(const std::optional<std::string>& reachable)>;

  static std::vector<VNStorageVolumeRef> describeContainer(const VNStorageVolume& volume, const Filter& keep) {
    std::vector<VNBtrfsMount> mounts = VNBtrfsMountsOf(volume.containerIdentifier);
    if (mounts.empty()) return {};
    VNUniqueFd fd(::open(mounts.front().target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) return {};
    return describeAll(volume.containerIdentifier, VNBtrfsListSubvolumes(fd.get()), mounts, keep);
  }

  // Attributes of subvolumes no mount reaches are read through one private
  // read-only mount of the file system's top, made only when needed.
  static std::vector<VNStorageVolumeRef> describeAll(const std::string& uuid,
                                                     const std::vector<VNBtrfsSubvolume>& subvolumes,
                                                     const std::vector<VNBtrfsMount>& mounts, const Filter& keep) {
    std::unique_ptr<VNBtrfsTopMount> top;
    bool triedTop = false;
    std::vector<VNStorageVolumeRef> volumes;
    for (const VNBtrfsSubvolume& subvolume : subvolumes) {
      const std::string& path = subvolume.path;
      std::optional<std::string> reachable = VNBtrfsReachablePath(mounts, path);
      if (!reachable && !triedTop) {
        triedTop = true;
        top = VNBtrfsTopMount::mount(mounts.front().source);
      }
      if (!reachable && top) reachable = top->path() + (path == "/" ? "" : path);
      if (!keep(reachable)) continue;
      volumes.push_back(describeSubvolume(uuid, subvolume, mounts, reachable));
    }
    return volumes;
  }
};

}  // namespace

std::shared_ptr<VNStorageService> VNStorageService::makeDefault() { return std::make_shared<LinuxStorageService>(); }
