// Making a pair of volumes: a btrfs file system (made when the device holds
// none) with a system and a data subvolume of one new volume group.
#include <blkid/blkid.h>
#include <btrfsutil.h>
#include <fcntl.h>
#include <libmount/libmount.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNStorageService.h"
#include "platform/internal/VNVolumeAttributes.h"

extern char** environ;

namespace {

// The type of the file system on `device` ("" when none), or null when it
// cannot be probed.
std::optional<std::string> fileSystemType(const std::string& device) {
  blkid_probe probe = blkid_new_probe_from_filename(device.c_str());
  if (!probe) return std::nullopt;
  std::string type;
  const char* value = nullptr;
  if (blkid_do_safeprobe(probe) == 0 && blkid_probe_lookup_value(probe, "TYPE", &value, nullptr) == 0) type = value;
  blkid_free_probe(probe);
  return type;
}

int makeFileSystem(const std::string& device) {
  const char* argv[] = {"mkfs.btrfs", "-q", "-f", device.c_str(), nullptr};
  pid_t child = 0;
  posix_spawn_file_actions_t quiet;
  ::posix_spawn_file_actions_init(&quiet);
  ::posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  int rc = ::posix_spawnp(&child, "mkfs.btrfs", &quiet, nullptr, const_cast<char**>(argv), environ);
  ::posix_spawn_file_actions_destroy(&quiet);
  if (rc != 0) return rc;
  int status = 0;
  if (::waitpid(child, &status, 0) != child) return errno;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : EIO;
}

std::string newGroup() {
  std::ifstream in("/proc/sys/kernel/random/uuid");
  std::string uuid;
  std::getline(in, uuid);
  return uuid;
}

// The top of the file system on `device`, mounted (through a loop device
// when it is a file) in a temporary folder while this object lives.
class TopMount {
 public:
  int mount(const std::string& device) {
    char folder[] = "/run/varnel-pair.XXXXXX";
    if (!::mkdtemp(folder)) return errno;
    folder_ = folder;
    context_ = mnt_new_context();
    if (!context_) return ENOMEM;
    mnt_context_set_source(context_, device.c_str());
    mnt_context_set_target(context_, folder);
    mnt_context_set_fstype(context_, "btrfs");
    mnt_context_set_options(context_, "subvolid=5");
    int rc = mnt_context_mount(context_);
    if (rc != 0 || mnt_context_get_status(context_) != 1) return rc < 0 ? -rc : EIO;
    mounted_ = true;
    return 0;
  }
  ~TopMount() {
    if (mounted_) {
      mnt_reset_context(context_);
      mnt_context_set_target(context_, folder_.c_str());
      mnt_context_umount(context_);
    }
    if (context_) mnt_free_context(context_);
    if (!folder_.empty()) ::rmdir(folder_.c_str());
  }
  const std::string& path() const { return folder_; }

 private:
  libmnt_context* context_ = nullptr;
  std::string folder_;
  bool mounted_ = false;
};

int makeVolume(const std::string& top, const std::string& name, const std::string& role, const std::string& group) {
  std::string path = top + "/" + name;
  if (btrfs_util_create_subvolume(path.c_str(), 0, nullptr, nullptr) != BTRFS_UTIL_OK) return errno ? errno : EIO;
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) return errno;
  return VNWriteVolumeAttributes(fd.get(), role, group);
}

bool fail(VNError* error, int code, const std::string& path, const char* step) {
  VNSetError(error, VNError::posix(code, path, step));
  return false;
}

bool prepareDevice(const VNVolumePairRequest& request, VNError* error) {
  std::optional<std::string> type = fileSystemType(request.device);
  if (!type) return fail(error, errno ? errno : ENOENT, request.device, "probe the device");
  if (!type->empty() && !request.reuse) return fail(error, EEXIST, request.device, "claim a device that holds a file system");
  if (*type == "btrfs") return true;
  int rc = makeFileSystem(request.device);
  return rc == 0 || fail(error, rc, request.device, "make a btrfs file system");
}

}  // namespace

std::optional<VNVolumePair> VNMakeVolumePair(const VNVolumePairRequest& request, VNError* error) {
  if (!prepareDevice(request, error)) return std::nullopt;
  TopMount top;
  if (int rc = top.mount(request.device)) return fail(error, rc, request.device, "mount"), std::nullopt;
  VNVolumePair pair{newGroup(), "/" + request.systemName, "/" + request.dataName};
  if (int rc = makeVolume(top.path(), request.systemName, VNStorage::kVolumeRoleSystem, pair.group))
    return fail(error, rc, pair.systemPath, "make the system volume"), std::nullopt;
  if (int rc = makeVolume(top.path(), request.dataName, VNStorage::kVolumeRoleData, pair.group))
    return fail(error, rc, pair.dataPath, "make the data volume"), std::nullopt;
  if (request.readOnlySystem &&
      btrfs_util_set_subvolume_read_only((top.path() + pair.systemPath).c_str(), true) != BTRFS_UTIL_OK)
    return fail(error, errno ? errno : EIO, pair.systemPath, "make read-only"), std::nullopt;
  return pair;
}
