// Storage values of one item: statx, then FIEMAP where extents can be shared.
#include <fcntl.h>
#include <linux/btrfs.h>
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

// Spreads a 64-bit value over 64 bits (the splitmix64 finaliser).
std::uint64_t mix(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15ull;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
  return value ^ (value >> 31);
}

// A fingerprint of the file's whole extent map (logical offset, physical
// address and length of every extent) in `domain`, given only when every
// extent is marked shared: two files get the same one when all their storage
// is the same storage, and a file that shares only part of its extents gets
// none.
std::optional<std::uint64_t> wholelySharedExtents(int fd, std::uint64_t domain) {
  constexpr unsigned kBatch = 32;
  alignas(struct fiemap) unsigned char buffer[sizeof(struct fiemap) +
                                              kBatch * sizeof(struct fiemap_extent)];
  auto* map = reinterpret_cast<struct fiemap*>(buffer);
  std::uint64_t start = 0;
  std::uint64_t print = mix(domain);
  for (;;) {
    std::memset(map, 0, sizeof *map);
    map->fm_start = start;
    map->fm_length = FIEMAP_MAX_OFFSET - start;
    map->fm_extent_count = kBatch;
    if (::ioctl(fd, FS_IOC_FIEMAP, map) != 0 || map->fm_mapped_extents == 0) return std::nullopt;
    for (unsigned i = 0; i < map->fm_mapped_extents; ++i) {
      const fiemap_extent& extent = map->fm_extents[i];
      if (!(extent.fe_flags & FIEMAP_EXTENT_SHARED)) return std::nullopt;
      print = mix(print ^ extent.fe_logical);
      print = mix(print ^ extent.fe_physical);
      print = mix(print ^ extent.fe_length);
      if (extent.fe_flags & FIEMAP_EXTENT_LAST) return print;
    }
    const fiemap_extent& last = map->fm_extents[map->fm_mapped_extents - 1];
    start = last.fe_logical + last.fe_length;
  }
}

VNStorageValues valuesFromStatx(const struct statx& sx) {
  VNStorageValues values;
  values.device = ::makedev(sx.stx_dev_major, sx.stx_dev_minor);
  values.inode = sx.stx_ino;
  values.fileIdentifier = sx.stx_ino ^ mix(values.device);
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
bool worthAskingForExtents(const VNStorageValues& values, const VNCloneDomain& domain) {
  return domain && values.type == VNStorageValues::Type::Regular && values.allocatedSize &&
         *values.allocatedSize > 0;
}

void addSharing(VNStorageValues& values, int fd, std::uint64_t domain) {
  if (auto print = wholelySharedExtents(fd, domain)) {
    values.mayShareContent = true;
    values.contentIdentifier = *print;
  }
}

}  // namespace

namespace VNStorageProbe {

VNCloneDomain cloneDomain(int fd) {
  struct statfs fs {};
  if (::fstatfs(fd, &fs) != 0) return std::nullopt;
  if (fs.f_type == BTRFS_SUPER_MAGIC) {
    // Each subvolume has a device number and an f_fsid of its own, but
    // clones cross subvolumes: the file system's UUID names the domain.
    btrfs_ioctl_fs_info_args info{};
    if (::ioctl(fd, BTRFS_IOC_FS_INFO, &info) != 0) return std::nullopt;
    std::uint64_t halves[2];
    std::memcpy(halves, info.fsid, sizeof halves);
    return mix(halves[0]) ^ halves[1];
  }
  if (fs.f_type != XFS_SUPER_MAGIC) return std::nullopt;
  std::uint64_t id = 0;
  std::memcpy(&id, &fs.f_fsid, sizeof id);
  return id;
}

VNStorageValues read(int dirFd, const char* name, const VNCloneDomain& domain, bool listedRegular) {
  // A file whose extents will be asked for is opened first and its status
  // read through the descriptor: one lookup of its name instead of two.
  if (domain && listedRegular) {
    VNUniqueFd file(::openat(dirFd, name, kOpenFileFlags));
    struct statx sx {};
    if (file && ::statx(file.get(), "", kStatxFlags | AT_EMPTY_PATH, kStatxMask, &sx) == 0) {
      VNStorageValues values = valuesFromStatx(sx);
      if (worthAskingForExtents(values, domain)) addSharing(values, file.get(), *domain);
      return values;
    }
  }
  struct statx sx {};
  if (::statx(dirFd, name, kStatxFlags, kStatxMask, &sx) != 0) return {};
  VNStorageValues values = valuesFromStatx(sx);
  if (worthAskingForExtents(values, domain)) {
    VNUniqueFd file(::openat(dirFd, name, kOpenFileFlags));
    if (file) addSharing(values, file.get(), *domain);
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
  if (worthAskingForExtents(values, VNCloneDomain(0))) {
    VNUniqueFd file(::open(path.c_str(), kOpenFileFlags));
    VNCloneDomain domain = file ? cloneDomain(file.get()) : std::nullopt;
    if (domain) addSharing(values, file.get(), *domain);
  }
  return values;
}

}  // namespace VNStorageProbe
