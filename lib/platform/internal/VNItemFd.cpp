#include "platform/internal/VNItemFd.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
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

int VNListXattrs(int pathFd, std::vector<std::string>* names) {
  std::string path = VNProcFdPath(pathFd);
  // Most items have few attributes: one call into a buffer of a good size,
  // asking for the exact size only when it is too small.
  std::string buffer(4096, '\0');
  for (;;) {
    ssize_t size = ::listxattr(path.c_str(), buffer.data(), buffer.size());
    if (size >= 0) {
      buffer.resize(static_cast<size_t>(size));
      break;
    }
    if (errno == ENOTSUP) return names->clear(), 0;
    if (errno != ERANGE) return errno;
    size = ::listxattr(path.c_str(), nullptr, 0);
    if (size < 0) return errno;
    buffer.resize(static_cast<size_t>(size) + 1);  // +1: the list may grow meanwhile
  }
  names->clear();
  for (size_t start = 0; start < buffer.size();) {
    size_t end = buffer.find('\0', start);
    if (end == std::string::npos) end = buffer.size();
    if (end > start) names->emplace_back(buffer, start, end - start);
    start = end + 1;
  }
  return 0;
}

int VNGetXattr(int pathFd, const char* name, std::string* value) {
  std::string path = VNProcFdPath(pathFd);
  value->resize(256);
  for (;;) {
    ssize_t size = ::getxattr(path.c_str(), name, value->data(), value->size());
    if (size >= 0) {
      value->resize(static_cast<size_t>(size));
      return 0;
    }
    if (errno == ENOTSUP) return ENODATA;
    if (errno != ERANGE) return errno;
    size = ::getxattr(path.c_str(), name, nullptr, 0);
    if (size < 0) return errno == ENOTSUP ? ENODATA : errno;
    value->resize(static_cast<size_t>(size) + 1);
  }
}

int VNSetXattr(int pathFd, const char* name, const std::string& value) {
  int result = VNPlatformSlot<VNFileSystemCalls>::get()->setXattr(
      VNProcFdPath(pathFd).c_str(), name, value.data(), value.size());
  return -result;
}

int VNRemoveXattr(int pathFd, const char* name) {
  if (::removexattr(VNProcFdPath(pathFd).c_str(), name) == 0 || errno == ENODATA) return 0;
  return errno;
}
