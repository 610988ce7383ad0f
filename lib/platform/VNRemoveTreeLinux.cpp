#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/VNError.h"
#include "platform/VNRemoveTree.h"
#include "platform/internal/VNLockingFlags.h"
#include "platform/internal/VNTreeWalk.h"

namespace {

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

// Lifts the locking flags of `item` when the caller allows it; whether it
// had any.
bool lift(const Failure* failure, VNAtPath item) {
  return failure->liftLocking && VNLiftLockingFlags(item).has_value();
}

bool removeFile(const VNTreeEntry& entry, Failure* failure) {
  if (::unlinkat(entry.folderFd, entry.name, 0) == 0) return true;
  const int code = errno;
  // Below the top, an item that vanished meanwhile counts as removed.
  if (code == ENOENT && entry.level > 0) return true;
  if (code == EPERM && lift(failure, VNAtPath(entry.folderFd, entry.name)) &&
      ::unlinkat(entry.folderFd, entry.name, 0) == 0)
    return true;
  return fail(failure, code, entry.path, "remove");
}

bool removeEntry(const VNTreeEntry& entry, Failure* failure) {
  switch (entry.kind) {
    case FTS_D:
      // A folder with either flag refuses the removal of its entries; one
      // that keeps them says so when they are removed.
      lift(failure, VNAtPath(entry.folderFd, entry.name));
      return true;
    case FTS_DP:
      if (::unlinkat(entry.folderFd, entry.name, AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
      return fail(failure, errno, entry.path, "remove directory");
    case FTS_NS:
      if (entry.error == ENOENT && entry.level > 0) return true;
      return fail(failure, entry.error, entry.path, "remove");
    case FTS_DNR:
      if (entry.error == ENOENT) return true;
      return fail(failure, entry.error, entry.path, entry.step);
    case FTS_ERR:
      return fail(failure, entry.error, entry.path, entry.step);
    default:
      return removeFile(entry, failure);
  }
}

// Removes `item` (named `path`) and everything below it, deepest first.
bool removeTree(VNAtPath item, const std::string& path, Failure* failure) {
  VNTreeWalk walk(item, path);
  while (const VNTreeEntry* entry = walk.read())
    if (!removeEntry(*entry, failure)) return false;
  return true;
}

}  // namespace

bool VNRemoveTree(const std::string& path, VNError* error, VNRemoveLocked locked) {
  Failure failure;
  failure.liftLocking = locked == VNRemoveLocked::Lift;
  if (removeTree(VNAtPath(path), path, &failure)) return true;
  VNSetError(error, VNError::posix(failure.code, failure.path, failure.step));
  return false;
}

bool VNRemoveTreeAt(int folderFd, const std::string& name, const std::string& path, VNError* error) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    VNSetError(error, VNError::posix(EINVAL, path, "remove"));
    return false;
  }
  Failure failure;
  if (removeTree(VNAtPath(folderFd, name.c_str()), path, &failure)) return true;
  VNSetError(error, VNError::posix(failure.code, failure.path, failure.step));
  return false;
}
