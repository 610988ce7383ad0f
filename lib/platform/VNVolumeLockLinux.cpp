// Volume locks through flock(2) on a file opened without following links.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNVolumeLock.h"

namespace {

std::optional<long> holderOf(int fd) {
  char text[32] = {};
  ssize_t length = ::pread(fd, text, sizeof text - 1, 0);
  if (length <= 0) return std::nullopt;
  char* end = nullptr;
  long pid = std::strtol(text, &end, 10);
  if (end == text || pid <= 0) return std::nullopt;
  return pid;
}

void recordHolder(int fd) {
  std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd, 0) == 0) (void)!::pwrite(fd, pid.data(), pid.size(), 0);
}

}  // namespace

std::unique_ptr<VNVolumeLock> VNVolumeLock::acquire(const std::string& folder, const std::string& name,
                                                    VNError* error, std::optional<long>* holder) {
  std::string path = folder + "/" + name;
  VNUniqueFd top(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!top) return VNSetError(error, VNError::posix(errno, folder, "open the volume")), nullptr;
  VNUniqueFd fd(::openat(top.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!fd) return VNSetError(error, VNError::posix(errno, path, "open the lock file")), nullptr;
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
    return VNSetError(error, VNError::posix(EINVAL, path, "use as a lock file")), nullptr;
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    int code = errno == EWOULDBLOCK ? EBUSY : errno;
    if (holder) *holder = holderOf(fd.get());
    return VNSetError(error, VNError::posix(code, path, "lock the volume")), nullptr;
  }
  recordHolder(fd.get());
  return std::unique_ptr<VNVolumeLock>(new VNVolumeLock(fd.release()));
}

VNVolumeLock::~VNVolumeLock() { ::close(fd_); }
