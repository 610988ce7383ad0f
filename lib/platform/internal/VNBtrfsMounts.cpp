// Mounts of btrfs file systems, read through libmount.
#include "platform/internal/VNBtrfsMounts.h"

#include <fcntl.h>
#include <libmount/libmount.h>
#include <linux/btrfs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "foundation/VNUniqueFd.h"

namespace {

struct TableFree {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IterFree {
  void operator()(libmnt_iter* iter) const { mnt_free_iter(iter); }
};

std::string canonicalUUID(const unsigned char* bytes) {
  static const char* const hex = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += hex[bytes[i] >> 4];
    text += hex[bytes[i] & 15];
  }
  return text;
}

std::optional<std::string> uuidOfMount(const char* target) {
  VNUniqueFd fd(::open(target, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) return std::nullopt;
  return VNBtrfsUUID(fd.get());
}

}  // namespace

std::optional<std::string> VNBtrfsUUID(int fd) {
  struct btrfs_ioctl_fs_info_args info {};
  if (::ioctl(fd, BTRFS_IOC_FS_INFO, &info) != 0) return std::nullopt;
  return canonicalUUID(info.fsid);
}

std::vector<VNBtrfsMount> VNBtrfsMountsOf(const std::string& uuid) {
  std::vector<VNBtrfsMount> mounts;
  std::unique_ptr<libmnt_table, TableFree> table(mnt_new_table());
  if (!table || mnt_table_parse_file(table.get(), "/proc/self/mountinfo") != 0) return mounts;
  std::unique_ptr<libmnt_iter, IterFree> iter(mnt_new_iter(MNT_ITER_FORWARD));
  libmnt_fs* fs = nullptr;
  while (iter && mnt_table_next_fs(table.get(), iter.get(), &fs) == 0) {
    const char* type = mnt_fs_get_fstype(fs);
    const char* target = mnt_fs_get_target(fs);
    if (!type || std::string_view(type) != "btrfs" || !target) continue;
    if (uuidOfMount(target) != uuid) continue;
    const char* root = mnt_fs_get_root(fs);
    const char* source = mnt_fs_get_source(fs);
    mounts.push_back({target, root ? root : "/", source ? source : ""});
  }
  return mounts;
}

std::optional<std::string> VNBtrfsReachablePath(const std::vector<VNBtrfsMount>& mounts,
                                                const std::string& pathInContainer) {
  for (const VNBtrfsMount& mount : mounts) {
    std::string_view root = mount.root;
    if (root == "/") root = "";
    std::string_view path = pathInContainer;
    if (path.substr(0, root.size()) != root) continue;
    std::string_view rest = path.substr(root.size());
    if (!rest.empty() && rest.front() != '/') continue;
    if (rest == "/") rest = "";
    return mount.target + std::string(rest);
  }
  return std::nullopt;
}

std::optional<std::string> VNBtrfsMountPointOf(const std::vector<VNBtrfsMount>& mounts,
                                               const std::string& pathInContainer) {
  for (const VNBtrfsMount& mount : mounts)
    if (mount.root == pathInContainer) return mount.target;
  return std::nullopt;
}

std::unique_ptr<VNBtrfsTopMount> VNBtrfsTopMount::mount(const std::string& device) {
  char folder[] = "/run/varnel-volumes.XXXXXX";
  if (!::mkdtemp(folder)) return nullptr;
  if (::mount(device.c_str(), folder, "btrfs", MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, "subvolid=5") != 0) {
    ::rmdir(folder);
    return nullptr;
  }
  return std::unique_ptr<VNBtrfsTopMount>(new VNBtrfsTopMount(folder));
}

VNBtrfsTopMount::~VNBtrfsTopMount() {
  ::umount2(folder_.c_str(), MNT_DETACH);
  ::rmdir(folder_.c_str());
}
