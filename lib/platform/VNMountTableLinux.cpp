// The mount table from /proc/self/mountinfo (libmount), matched to items by
// the mount ids statx reports.
#include <fcntl.h>
#include <libmount/libmount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "foundation/VNError.h"
#include "platform/VNMountTable.h"

namespace {

struct TableDeleter {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IterDeleter {
  void operator()(libmnt_iter* iter) const { mnt_free_iter(iter); }
};
using Table = std::unique_ptr<libmnt_table, TableDeleter>;

Table readTable(VNError* error) {
  Table table(mnt_new_table());
  if (!table) {
    VNSetError(error, VNError::posix(ENOMEM, "/proc/self/mountinfo", "read mount table"));
    return nullptr;
  }
  int rc = mnt_table_parse_file(table.get(), "/proc/self/mountinfo");
  if (rc != 0) {
    VNSetError(error, VNError::posix(rc < 0 ? -rc : EINVAL, "/proc/self/mountinfo", "read mount table"));
    return nullptr;
  }
  return table;
}

std::optional<int> mountIdOf(int dirfd, const char* path, int flags, VNError* error,
                             std::string_view shownPath) {
  struct statx stx {};
  if (::statx(dirfd, path, flags, STATX_MNT_ID, &stx) != 0) {
    VNSetError(error, VNError::posix(errno, shownPath, "examine"));
    return std::nullopt;
  }
  if (!(stx.stx_mask & STATX_MNT_ID)) {
    VNSetError(error, VNError::posix(ENOTSUP, shownPath, "read the mount id of"));
    return std::nullopt;
  }
  return static_cast<int>(stx.stx_mnt_id);
}

libmnt_fs* findMount(libmnt_table* table, int id, VNError* error, std::string_view shownPath) {
  std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
  libmnt_fs* fs = nullptr;
  while (iter && mnt_table_next_fs(table, iter.get(), &fs) == 0)
    if (mnt_fs_get_id(fs) == id) return fs;
  VNSetError(error, VNError::posix(ENOENT, shownPath, "find the mount of"));
  return nullptr;
}

std::string descriptorPath(int fd, VNError* error) {
  std::string link = "/proc/self/fd/" + std::to_string(fd);
  std::string buffer(256, '\0');
  for (;;) {
    ssize_t n = ::readlink(link.c_str(), buffer.data(), buffer.size());
    if (n < 0) {
      VNSetError(error, VNError::posix(errno, link, "read the path of"));
      return {};
    }
    if (static_cast<size_t>(n) < buffer.size()) {
      buffer.resize(static_cast<size_t>(n));
      return buffer;
    }
    buffer.resize(buffer.size() * 2);
  }
}

// The folder of the file system that a mount of the whole volume shows: the
// subvolume for btrfs, the file system's root elsewhere.
std::string volumeRoot(libmnt_fs* fs) {
  char* value = nullptr;
  size_t size = 0;
  if (mnt_fs_get_option(fs, "subvol", &value, &size) == 0 && value && size > 0)
    return std::string(value, size);
  return "/";
}

// `base` followed by the parts, with exactly one "/" between non-empty pieces.
std::string joinPath(std::string base, std::string_view a, std::string_view b) {
  for (std::string_view part : {a, b}) {
    while (!part.empty() && part.front() == '/') part.remove_prefix(1);
    if (part.empty()) continue;
    if (base.empty() || base.back() != '/') base += '/';
    base.append(part);
  }
  return base;
}

// `path` less `prefix` when `prefix` is a whole-component prefix of it.
std::optional<std::string_view> belowPrefix(std::string_view path, std::string_view prefix) {
  if (prefix == "/") return path;
  if (path.substr(0, prefix.size()) != prefix) return std::nullopt;
  std::string_view rest = path.substr(prefix.size());
  if (!rest.empty() && rest.front() != '/') return std::nullopt;
  return rest;
}

bool sameItem(const std::string& path, const struct stat& item) {
  struct stat other {};
  return ::lstat(path.c_str(), &other) == 0 && other.st_dev == item.st_dev &&
         other.st_ino == item.st_ino;
}

// The path through a mount of the whole volume that `mount` shows part of.
std::optional<std::string> pathThroughVolumeMount(libmnt_table* table, libmnt_fs* mount,
                                                  std::string_view rest, const struct stat& item) {
  std::string root = mnt_fs_get_root(mount) ? mnt_fs_get_root(mount) : "/";
  std::string wholeRoot = volumeRoot(mount);
  auto inside = belowPrefix(root, wholeRoot);
  if (!inside) return std::nullopt;
  std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
  if (!iter) return std::nullopt;
  libmnt_fs* fs = nullptr;
  while (mnt_table_next_fs(table, iter.get(), &fs) == 0) {
    const char* target = mnt_fs_get_target(fs);
    const char* fsRoot = mnt_fs_get_root(fs);
    if (fs == mount || !target || !fsRoot || mnt_fs_get_devno(fs) != mnt_fs_get_devno(mount) ||
        wholeRoot != fsRoot)
      continue;
    std::string candidate = joinPath(target, *inside, rest);
    if (sameItem(candidate, item)) return candidate;
  }
  return std::nullopt;
}

class LinuxMountTable final : public VNMountTable {
 public:
  std::optional<std::string> mountPointOfPath(const std::string& path, VNError* error) override {
    auto id = mountIdOf(AT_FDCWD, path.c_str(), 0, error, path);
    if (!id) return std::nullopt;
    Table table = readTable(error);
    libmnt_fs* fs = table ? findMount(table.get(), *id, error, path) : nullptr;
    if (!fs || !mnt_fs_get_target(fs)) return std::nullopt;
    return std::string(mnt_fs_get_target(fs));
  }

  std::optional<std::string> volumePathOfDescriptor(int fd, VNError* error) override {
    std::string path = descriptorPath(fd, error);
    struct stat item {};
    if (path.empty()) return std::nullopt;
    if (::fstat(fd, &item) != 0) {
      VNSetError(error, VNError::posix(errno, path, "examine"));
      return std::nullopt;
    }
    auto id = mountIdOf(fd, "", AT_EMPTY_PATH, error, path);
    if (!id) return std::nullopt;
    Table table = readTable(error);
    libmnt_fs* mount = table ? findMount(table.get(), *id, error, path) : nullptr;
    if (!mount) return std::nullopt;
    const char* root = mnt_fs_get_root(mount);
    const char* target = mnt_fs_get_target(mount);
    if (!root || !target || volumeRoot(mount) == root) return path;
    auto rest = belowPrefix(path, target);
    if (!rest) return path;
    return pathThroughVolumeMount(table.get(), mount, *rest, item).value_or(path);
  }
};

}  // namespace

std::shared_ptr<VNMountTable> VNMountTable::makeDefault() { return std::make_shared<LinuxMountTable>(); }
