#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNRemoveTree.h"
#include "platform/internal/VNLockingFlags.h"

namespace {

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

struct Failure {
  // Set by the caller: immutable and append-only flags are lifted from what
  // is about to go instead of stopping the removal.
  bool liftLocking = false;
  int code = 0;
  std::string path;
  const char* step = "";
};

bool fail(Failure* failure, int code, const std::string& path, const char* step) {
  failure->code = code;
  failure->path = path;
  failure->step = step;
  return false;
}

bool removeEntry(int dirfd, const char* name, const std::string& path, Failure* failure);

bool removeChildren(int fd, const std::string& path, Failure* failure) {
  int copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return fail(failure, errno, path, "read directory");
  std::unique_ptr<DIR, DirCloser> dir(::fdopendir(copy));
  if (!dir) {
    int code = errno;
    ::close(copy);
    return fail(failure, code, path, "read directory");
  }
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(dir.get());
    if (!entry) return errno == 0 || fail(failure, errno, path, "read directory");
    if (!std::strcmp(entry->d_name, ".") || !std::strcmp(entry->d_name, "..")) continue;
    if (!removeEntry(fd, entry->d_name, path + "/" + entry->d_name, failure) &&
        failure->code != ENOENT)
      return false;
  }
}

bool removeEntry(int dirfd, const char* name, const std::string& path, Failure* failure) {
  if (::unlinkat(dirfd, name, 0) == 0) return true;
  int unlinkError = errno;
  if (unlinkError != EISDIR && unlinkError != EPERM)
    return fail(failure, unlinkError, path, "remove");
  // An immutable or append-only item refuses its own removal, a folder with
  // either flag the removal of its entries.
  if (failure->liftLocking && VNLiftLockingFlags(VNAtPath(dirfd, name)) && unlinkError == EPERM &&
      ::unlinkat(dirfd, name, 0) == 0)
    return true;
  VNUniqueFd dir(::openat(dirfd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!dir) {
    int code = errno == ENOTDIR || errno == ELOOP ? unlinkError : errno;
    return fail(failure, code, path, code == unlinkError ? "remove" : "open directory");
  }
  if (!removeChildren(dir.get(), path, failure)) return false;
  if (::unlinkat(dirfd, name, AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
  return fail(failure, errno, path, "remove directory");
}

}  // namespace

bool VNRemoveTree(const std::string& path, VNError* error, VNRemoveLocked locked) {
  Failure failure;
  failure.liftLocking = locked == VNRemoveLocked::Lift;
  if (removeEntry(AT_FDCWD, path.c_str(), path, &failure)) return true;
  VNSetError(error, VNError::posix(failure.code, failure.path, failure.step));
  return false;
}

bool VNRemoveTreeAt(int folderFd, const std::string& name, const std::string& path, VNError* error) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    VNSetError(error, VNError::posix(EINVAL, path, "remove"));
    return false;
  }
  Failure failure;
  if (removeEntry(folderFd, name.c_str(), path, &failure)) return true;
  VNSetError(error, VNError::posix(failure.code, failure.path, failure.step));
  return false;
}
