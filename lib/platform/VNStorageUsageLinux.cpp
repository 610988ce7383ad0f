// Storage values from statx, shared extents from FIEMAP, and a walk over
// directory descriptors that never follows a symbolic link.
#include <dirent.h>
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "foundation/VNUniqueFd.h"
#include "platform/VNStorageUsage.h"

namespace {

constexpr unsigned kStatxMask = STATX_TYPE | STATX_INO | STATX_NLINK | STATX_SIZE | STATX_BLOCKS;
// Never follow a link or trigger an automount; take the cached attributes of
// network file systems rather than asking the server.
constexpr int kStatxFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kOpenFileFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// Spreads a device number over 64 bits (the splitmix64 finaliser).
std::uint64_t mixDevice(std::uint64_t device) {
  device += 0x9E3779B97F4A7C15ull;
  device = (device ^ (device >> 30)) * 0xBF58476D1CE4E5B9ull;
  device = (device ^ (device >> 27)) * 0x94D049BB133111EBull;
  return device ^ (device >> 31);
}

bool fileSystemCanClone(int fd) {
  struct statfs fs {};
  if (::fstatfs(fd, &fs) != 0) return false;
  return fs.f_type == BTRFS_SUPER_MAGIC || fs.f_type == XFS_SUPER_MAGIC;
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

// One open folder of the walk.
struct Level {
  UniqueDir dir;
  size_t pathLength;  // of the walk's path buffer while inside this folder
  bool canClone;
};

class Walk {
 public:
  Walk(const VNStorageUsage::Visitor& visit, const VNStorageUsage::ErrorHandler& onError)
      : visit_(visit), onError_(onError) {}

  void run(const std::string& root) {
    path_ = root;
    VNUniqueFd fd(::open(root.c_str(), kOpenFolderFlags));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
      onError_(VNError::posix(errno, root, "open folder"));
      return;
    }
    if (!enter(std::move(fd), st.st_dev)) return;
    while (!levels_.empty()) {
      if (!step()) return;
    }
  }

 private:
  // Takes the next entry of the innermost folder; false to stop the walk.
  bool step() {
    Level& level = levels_.back();
    errno = 0;
    const dirent* entry = ::readdir(level.dir.get());
    if (!entry) {
      bool goOn = errno == 0 || onError_(VNError::posix(errno, path_, "read folder"));
      levels_.pop_back();
      if (!levels_.empty()) path_.resize(levels_.back().pathLength);
      return goOn;
    }
    const char* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) return true;

    int dirFd = ::dirfd(level.dir.get());
    struct statx sx {};
    if (::statx(dirFd, name, kStatxFlags, kStatxMask, &sx) != 0) return visit_(VNStorageValues{});
    VNStorageValues values = valuesFromStatx(sx);
    if (worthAskingForExtents(values, level.canClone)) {
      VNUniqueFd file(::openat(dirFd, name, kOpenFileFlags));
      if (file) addSharing(values, file.get());
    }
    if (!visit_(values)) return false;
    if (values.type != VNStorageValues::Type::Directory) return true;

    path_.append("/").append(name);
    VNUniqueFd child(::openat(dirFd, name, kOpenFolderFlags));
    if (!child) {
      bool goOn = onError_(VNError::posix(errno, path_, "open folder"));
      path_.resize(levels_.back().pathLength);
      return goOn;
    }
    return enter(std::move(child), values.device);
  }

  bool enter(VNUniqueFd fd, std::uint64_t device) {
    bool canClone = cloneCapability(fd.get(), device);
    UniqueDir dir(::fdopendir(fd.get()));
    if (!dir) {
      bool goOn = onError_(VNError::posix(errno, path_, "open folder"));
      if (!levels_.empty()) path_.resize(levels_.back().pathLength);
      return goOn;
    }
    fd.release();
    levels_.push_back(Level{std::move(dir), path_.size(), canClone});
    return true;
  }

  // Asks the file system once per device met.
  bool cloneCapability(int fd, std::uint64_t device) {
    for (const auto& [known, canClone] : devices_)
      if (known == device) return canClone;
    devices_.emplace_back(device, fileSystemCanClone(fd));
    return devices_.back().second;
  }

  const VNStorageUsage::Visitor& visit_;
  const VNStorageUsage::ErrorHandler& onError_;
  std::vector<Level> levels_;
  std::vector<std::pair<std::uint64_t, bool>> devices_;
  std::string path_;  // of the innermost folder, for error messages
};

class LinuxStorageUsage final : public VNStorageUsage {
 public:
  VNStorageValues valuesOfItem(const std::string& path, VNError* error) override {
    struct statx sx {};
    if (::statx(AT_FDCWD, path.c_str(), kStatxFlags, kStatxMask, &sx) != 0) {
      VNSetError(error, VNError::posix(errno, path, "read attributes of"));
      return {};
    }
    VNStorageValues values = valuesFromStatx(sx);
    if (values.type == VNStorageValues::Type::Regular) {
      VNUniqueFd file(::open(path.c_str(), kOpenFileFlags));
      if (file && worthAskingForExtents(values, fileSystemCanClone(file.get())))
        addSharing(values, file.get());
    }
    return values;
  }

  void walk(const std::string& root, const Visitor& visit, const ErrorHandler& onError) override {
    Walk(visit, onError).run(root);
  }
};

}  // namespace

std::shared_ptr<VNStorageUsage> VNStorageUsage::makeDefault() {
  return std::make_shared<LinuxStorageUsage>();
}
