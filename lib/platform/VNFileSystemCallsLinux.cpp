// The real system calls behind VNFileSystemCalls.
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "platform/VNFileSystemCalls.h"

namespace {

ssize_t countOrErrno(ssize_t result) { return result < 0 ? -errno : result; }

class LinuxFileSystemCalls final : public VNFileSystemCalls {
 public:
  int cloneFile(int destinationFd, int sourceFd) override {
    return ::ioctl(destinationFd, FICLONE, sourceFd) == 0 ? 0 : -errno;
  }
  ssize_t copyFileRange(int sourceFd, off_t* sourceOffset, int destinationFd,
                        off_t* destinationOffset, size_t length) override {
    return countOrErrno(::copy_file_range(sourceFd, sourceOffset, destinationFd,
                                          destinationOffset, length, 0));
  }
  ssize_t readAt(int fd, void* buffer, size_t length, off_t offset) override {
    return countOrErrno(::pread(fd, buffer, length, offset));
  }
  ssize_t writeAt(int fd, const void* buffer, size_t length, off_t offset) override {
    return countOrErrno(::pwrite(fd, buffer, length, offset));
  }
  int setXattr(VNAtPath item, const char* name, const void* value, size_t size) override {
    int result = item.path[0] == '\0' ? ::fsetxattr(item.dirfd, name, value, size, 0)
                                      : ::setxattr(item.path, name, value, size, 0);
    return result == 0 ? 0 : -errno;
  }
};

}  // namespace

std::shared_ptr<VNFileSystemCalls> VNFileSystemCalls::makeDefault() {
  return std::make_shared<LinuxFileSystemCalls>();
}
