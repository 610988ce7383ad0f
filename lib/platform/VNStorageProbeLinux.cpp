// Storage values of one item: statx, then FIEMAP where extents can be shared.
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstring>

#include "foundation/VNUniqueFd.h"
#include "platform/internal/VNStorageProbeLinux.h"

namespace {

constexpr unsigned kStatxMask = STATX_TYPE | STATX_INO | STATX_NLINK | STATX_SIZE | STATX_BLOCKS;
// Never follow a link or trigger an automount; take the cached attributes of
// network file systems rather than asking the server.
constexpr int kStatxFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
constexpr int kOpenFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// Spreads a device number over 64 bits (the splitmix64 finaliser).
std::uint64_t mixDevice(std::uint64_t device) {
  device += 0x9E3779B97F4A7C15ull;
  device = (device ^ (device >> 30)) * 0xBF58476D1CE4E5B9ull;
  device = (device ^ (device >> 27)) * 0x94D049BB133111EBull;
  return device ^ (device >> 31);
}

// The physical address of the file's first extent marked shared, or none.
std::optional<std::uint64_t> firstSharedExtent(int fd) {
  constexpr unsigned kBatch = 32;
  alignas(struct fiemap) unsigned char buffer[sizeof(struct fiemap) +
                                              kBatch * sizeof(struct fiemap_extent)];
  auto* map = reinterpret_cast<struct fiemap*>(buffer);
  std::uint64_t start = 0;
  for (;;) {
    std::memset(map, 0, sizeof *map);
    map->fm_start = start;
    map->fm_length = FIEMAP_MAX_OFFSET - start;
    map->fm_extent_count = kBatch;
    if (::ioctl(fd, FS_IOC_FIEMAP, map) != 0 || map->fm_mapped_extents == 0) return std::nullopt;
    for (unsigned i = 0; i < map->fm_mapped_extents; ++i) {
      const fiemap_extent& extent = map->fm_extents[i];
      if (extent.fe_flags & FIEMAP_EXTENT_SHARED) return extent.fe_physical;
      if (extent.fe_flags & FIEMAP_EXTENT_LAST) return std::nullopt;
    }
    const fiemap_extent& last = map->fm_extents[map->fm_mapped_extents - 1];
    start = last.fe_logical + last.fe_length;
  }
}

VNStorageValues valuesFromStatx(const struct statx& sx) {
  VNStorageValues values;
  values.device = ::makedev(sx.stx_dev_major, sx.stx_dev_minor);
  values.inode = sx.stx_ino;
  values.fileIdentifier = sx.stx_ino ^ mixDevice(values.device);
  switch (sx.stx_mode & S_IFMT) {
    case S_IFDIR: values.type = VNStorageValues::Type::Directory; break;
    case S_IFREG: values.type = VNStorageValues::Type::Regular; break;
    case S_IFLNK: values.type = VNStorageValues::Type::SymbolicLink; break;
    default: values.type = VNStorageValues::Type::Other; break;
  }
  if (values.type == VNStorageValues::Type::Directory) {
    values.linkCount = 1;
    return values;
  }
  values.linkCount = sx.stx_nlink;
  if (sx.stx_mask & STATX_SIZE) values.fileSize = sx.stx_size;
  if (sx.stx_mask & STATX_BLOCKS) values.allocatedSize = sx.stx_blocks * 512;
  return values;
}

// Whether asking for the file's extents can find any shared: only regular
// files with blocks of their own, on a file system that clones.
bool worthAskingForExtents(const VNStorageValues& values, bool canClone) {
  return canClone && values.type == VNStorageValues::Type::Regular && values.allocatedSize &&
         *values.allocatedSize > 0;
}

void addSharing(VNStorageValues& values, int fd) {
  if (auto physical = firstSharedExtent(fd)) {
    values.mayShareContent = true;
    values.contentIdentifier = *physical ^ mixDevice(values.device);
  }
}

}  // namespace

namespace VNStorageProbe {

bool fileSystemCanClone(int fd) {
  struct statfs fs {};
  if (::fstatfs(fd, &fs) != 0) return false;
  return fs.f_type == BTRFS_SUPER_MAGIC || fs.f_type == XFS_SUPER_MAGIC;
}

VNStorageValues read(int dirFd, const char* name, bool canClone, bool listedRegular) {
  // A file whose extents will be asked for is opened first and its status
  // read through the descriptor: one lookup of its name instead of two.
  if (canClone && listedRegular) {
    VNUniqueFd file(::openat(dirFd, name, kOpenFileFlags));
    struct statx sx {};
    if (file && ::statx(file.get(), "", kStatxFlags | AT_EMPTY_PATH, kStatxMask, &sx) == 0) {
      VNStorageValues values = valuesFromStatx(sx);
      if (worthAskingForExtents(values, canClone)) addSharing(values, file.get());
      return values;
    }
  }
  struct statx sx {};
  if (::statx(dirFd, name, kStatxFlags, kStatxMask, &sx) != 0) return {};
  VNStorageValues values = valuesFromStatx(sx);
  if (worthAskingForExtents(values, canClone)) {
    VNUniqueFd file(::openat(dirFd, name, kOpenFileFlags));
    if (file) addSharing(values, file.get());
  }
  return values;
}

VNStorageValues readItem(const std::string& path, int* failure) {
  struct statx sx {};
  if (::statx(AT_FDCWD, path.c_str(), kStatxFlags, kStatxMask, &sx) != 0) {
    *failure = errno;
    return {};
  }
  VNStorageValues values = valuesFromStatx(sx);
  if (worthAskingForExtents(values, /*canClone=*/true)) {
    VNUniqueFd file(::open(path.c_str(), kOpenFileFlags));
    if (file && fileSystemCanClone(file.get())) addSharing(values, file.get());
  }
  return values;
}

}  // namespace VNStorageProbe
