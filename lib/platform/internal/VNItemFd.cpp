#include "platform/internal/VNItemFd.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>

#include "platform/VNFileSystemCalls.h"
#include "platform/VNPlatformService.h"

int VNOpenItem(VNAtPath item, bool follow, VNUniqueFd* out) {
  int fd;
  if (item.path[0] == '\0')
    fd = ::fcntl(item.dirfd, F_DUPFD_CLOEXEC, 0);
  else
    fd = ::openat(item.dirfd, item.path, O_PATH | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW));
  if (fd < 0) return errno;
  out->reset(fd);
  return 0;
}

std::string VNProcFdPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

int VNReopenItem(int pathFd, int flags, VNUniqueFd* out) {
  int fd = ::open(VNProcFdPath(pathFd).c_str(), flags | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return errno;
  out->reset(fd);
  return 0;
}

int VNStatxItem(VNAtPath item, unsigned mask, struct statx* status) {
  const int flags = AT_SYMLINK_NOFOLLOW | (item.path[0] == '\0' ? AT_EMPTY_PATH : 0);
  return ::statx(item.dirfd, item.path, flags, mask, status) == 0 ? 0 : errno;
}

struct stat VNStatFromStatx(const struct statx& sx) {
  struct stat st {};
  st.st_dev = ::makedev(sx.stx_dev_major, sx.stx_dev_minor);
  st.st_ino = sx.stx_ino;
  st.st_mode = sx.stx_mode;
  st.st_nlink = sx.stx_nlink;
  st.st_uid = sx.stx_uid;
  st.st_gid = sx.stx_gid;
  st.st_rdev = ::makedev(sx.stx_rdev_major, sx.stx_rdev_minor);
  st.st_size = static_cast<off_t>(sx.stx_size);
  st.st_blksize = sx.stx_blksize;
  st.st_blocks = static_cast<blkcnt_t>(sx.stx_blocks);
  st.st_atim = {sx.stx_atime.tv_sec, sx.stx_atime.tv_nsec};
  st.st_mtim = {sx.stx_mtime.tv_sec, sx.stx_mtime.tv_nsec};
  st.st_ctim = {sx.stx_ctime.tv_sec, sx.stx_ctime.tv_nsec};
  return st;
}

int VNGetInodeFlags(int fd, unsigned* flags) {
  int value = 0;
  if (::ioctl(fd, FS_IOC_GETFLAGS, &value) != 0) return errno;
  *flags = static_cast<unsigned>(value);
  return 0;
}

int VNSetInodeFlags(int fd, unsigned flags) {
  int value = static_cast<int>(flags);
  return ::ioctl(fd, FS_IOC_SETFLAGS, &value) == 0 ? 0 : errno;
}

namespace {

ssize_t listNames(VNHeldFd item, char* buffer, size_t size) {
  if (!item.pathOnly) return ::flistxattr(item.fd, buffer, size);
  return ::listxattr(VNProcFdPath(item.fd).c_str(), buffer, size);
}

ssize_t readValue(VNHeldFd item, const char* name, void* buffer, size_t size) {
  if (!item.pathOnly) return ::fgetxattr(item.fd, name, buffer, size);
  return ::getxattr(VNProcFdPath(item.fd).c_str(), name, buffer, size);
}

}  // namespace

int VNListXattrs(VNHeldFd item, std::vector<std::string>* names) {
  // Most items have few attributes: one call into a buffer on the stack,
  // asking for the exact size only when it is too small.
  char small[1024];
  std::string large;
  const char* list = small;
  ssize_t size = listNames(item, small, sizeof small);
  while (size < 0) {
    if (errno == ENOTSUP) return names->clear(), 0;
    if (errno != ERANGE) return errno;
    size = listNames(item, nullptr, 0);
    if (size < 0) return errno;
    large.resize(static_cast<size_t>(size) + 1);  // +1: the list may grow meanwhile
    list = large.data();
    size = listNames(item, large.data(), large.size());
  }
  names->clear();
  for (const char* name = list; name < list + size;) {
    size_t length = ::strnlen(name, static_cast<size_t>(list + size - name));
    if (length) names->emplace_back(name, length);
    name += length + 1;
  }
  return 0;
}

int VNGetXattr(VNHeldFd item, const char* name, std::string* value) {
  value->resize(256);
  for (;;) {
    ssize_t size = readValue(item, name, value->data(), value->size());
    if (size >= 0) {
      value->resize(static_cast<size_t>(size));
      return 0;
    }
    if (errno == ENOTSUP) return ENODATA;
    if (errno != ERANGE) return errno;
    size = readValue(item, name, nullptr, 0);
    if (size < 0) return errno == ENOTSUP ? ENODATA : errno;
    value->resize(static_cast<size_t>(size) + 1);
  }
}

int VNSetXattr(VNHeldFd item, const char* name, const std::string& value) {
  std::string path = item.pathOnly ? VNProcFdPath(item.fd) : std::string();
  VNAtPath target = item.pathOnly ? VNAtPath(path) : VNAtPath(item.fd, "");
  return -VNPlatformSlot<VNFileSystemCalls>::get()->setXattr(target, name, value.data(), value.size());
}

int VNRemoveXattr(VNHeldFd item, const char* name) {
  int result = item.pathOnly ? ::removexattr(VNProcFdPath(item.fd).c_str(), name)
                             : ::fremovexattr(item.fd, name);
  return result == 0 || errno == ENODATA ? 0 : errno;
}
