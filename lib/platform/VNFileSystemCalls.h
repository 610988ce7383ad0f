#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "foundation/VNExport.h"
#include "platform/VNFsStatus.h"

// The system calls through which the copy operations move data and write
// extended attributes. Tests replace it (VNPlatformOverride) to make the Nth
// call fail with ENOSPC, EIO or EXDEV, which a real file system produces only
// by chance. Calls return 0 or a count on success and the negated errno value
// on failure; they never touch errno's meaning for the caller.
class VN_EXPORT VNFileSystemCalls {
 public:
  virtual ~VNFileSystemCalls() = default;

  // FICLONE: makes `destinationFd`'s contents a copy-on-write clone of all of
  // `sourceFd`'s.
  virtual int cloneFile(int destinationFd, int sourceFd) = 0;
  virtual ssize_t copyFileRange(int sourceFd, off_t* sourceOffset, int destinationFd,
                                off_t* destinationOffset, size_t length) = 0;
  virtual ssize_t readAt(int fd, void* buffer, size_t length, off_t offset) = 0;
  virtual ssize_t writeAt(int fd, const void* buffer, size_t length, off_t offset) = 0;
  // setxattr(2) on `item`: an empty path names the descriptor itself
  // (fsetxattr); any other path is followed (callers pass the
  // "/proc/self/fd/N" path of an O_PATH descriptor, which names the item).
  virtual int setXattr(VNAtPath item, const char* name, const void* value, size_t size) = 0;

  static std::shared_ptr<VNFileSystemCalls> makeDefault();
};
