// Forcing the template's attributes onto the items of the same names on a
// data volume, after the shove has merged the template into it.
//
// The data volume belongs to its users, who may swap any folder there for a
// symbolic link while this runs. Every destination item is therefore named
// relative to its parent folder, held open from the root down without
// following a link, and changed through the copy engine's metadata step on a
// descriptor: owner, permission bits, times and the flags word, with the
// same rules as a copy (no chown when the owner is unchanged, immutable and
// append-only lifted around the change, compression dropped where the
// volume cannot compress). A link in the place of a folder is forced as the
// link itself and nothing below it is visited.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "common/VNLogging.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "datatemplate/internal/VNAttributeForcing.h"
#include "foundation/VNFormat.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNCopyItem.h"
#include "platform/VNPlatformService.h"
#include "platform/internal/VNFolderTrail.h"
#include "platform/internal/VNTreeWalk.h"

namespace {

constexpr const char* kFunction = "+[VNUDataTemplateUtilities _forceAttributesOfSrcPath:toDstPath:error:]";
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

template <class... Args>
void logLine(VNLogType type, int line, std::string_view format, const Args&... args) {
  VNLogging::logType(type, kFunction, line, VNFormat(format, args...));
}

bool reportMissing() {
  logLine(VNLogTypeError, __LINE__, "File does not exist at the destination we're copying attributes to.");
  return true;
}

class Forcing {
 public:
  Forcing(std::string sourceRoot, std::string destinationRoot, VNError* error)
      : sourceRoot_(std::move(sourceRoot)), destinationRoot_(std::move(destinationRoot)), error_(error) {}

  // Holds the destination root, the folder of `status`.
  bool run(VNUniqueFd destination, const struct stat& status) {
    folders_.push(std::move(destination), status.st_dev, status.st_ino);
    VNTreeWalk walk(VNAtPath(sourceRoot_.c_str()), sourceRoot_);
    while (VNTreeEntry* entry = walk.read()) {
      if (entry->level == 0) {
        if (entry->kind != FTS_D && entry->kind != FTS_DP) return true;  // nothing below it
        continue;
      }
      if (!visit(walk, entry)) return false;
    }
    return true;
  }

 private:
  bool visit(VNTreeWalk& walk, const VNTreeEntry* entry) {
    switch (entry->kind) {
      case FTS_NS: case FTS_ERR: return failToRead(entry);
      case FTS_D: return enterFolder(walk, entry);
      case FTS_DP: return leaveFolder(entry);
      case FTS_DNR: return leaveFolder(entry, /*force=*/false) && forceItem(entry);
      case FTS_F: case FTS_SL: case FTS_DEFAULT: return forceItem(entry);
      default: return true;
    }
  }

  std::string destinationPath(const VNTreeEntry* entry) const {
    return destinationRoot_ + (entry->path + sourceRoot_.size());
  }

  // A folder of the template is held on the destination before its contents
  // are forced; its own attributes follow them. Where the destination has
  // no folder of that name, nothing below it is visited.
  bool enterFolder(VNTreeWalk& walk, const VNTreeEntry* entry) {
    VNUniqueFd folder(::openat(folders_.fd(), entry->name, kFolderFlags));
    struct stat status {};
    if (folder && ::fstat(folder.get(), &status) == 0) {
      folders_.push(std::move(folder), status.st_dev, status.st_ino);
      return true;
    }
    walk.skip();
    return errno == ENOENT ? reportMissing() : forceItem(entry);
  }

  // Leaves the destination folder of `entry` and forces its attributes. A
  // folder passed over on entry (the walk reports it again when skipped)
  // holds no descriptor of its level.
  bool leaveFolder(const VNTreeEntry* entry, bool force = true) {
    if (folders_.size() <= static_cast<std::size_t>(entry->level)) return true;
    if (int code = folders_.pop()) return failToReopen(entry, code);
    return !force || forceItem(entry);
  }

  bool failToRead(const VNTreeEntry* entry) {
    const char* step = entry->kind == FTS_NS ? "read attributes of" : entry->step;
    VNError failure = VNError::posix(entry->error, entry->path, step);
    logLine(VNLogTypeError, __LINE__, "Failed to get attributes of SRCPath(%s). %@", entry->path,
            failure.localizedDescription());
    VNSetError(error_, std::move(failure));
    return false;
  }

  // The destination folder holding `entry` is no longer the one it was.
  bool failToReopen(const VNTreeEntry* entry, int code) {
    VNError failure = VNError::posix(code, destinationPath(entry), "reopen the folder holding");
    logLine(VNLogTypeError, __LINE__, "Failed to set source attributes to the destination path(%s). %s",
            destinationPath(entry), failure.localizedDescription());
    VNSetError(error_, std::move(failure));
    return false;
  }

  bool forceItem(const VNTreeEntry* entry) {
    const std::string destination = destinationPath(entry);
    logLine(VNLogTypeDefault, __LINE__, "Copying attributes and flags (%s)->(%s)", entry->path, destination);
    // Both are named relative to their folders; the source as "./name", so
    // that a failure's path tells which of the two failed.
    const std::string source = std::string("./") + entry->name;
    VNFsStatus status = copy_->copyItem(VNAtPath(entry->folderFd, source.c_str()),
                                        VNAtPath(folders_.fd(), entry->name), VNCopyOptionSet::StatOnly);
    if (status.ok()) return true;
    const bool onDestination = status.path == entry->name;
    if (onDestination && status.code == ENOENT && status.step == "open") return reportMissing();
    const std::string path = onDestination ? destination : std::string(entry->path);
    VNError failure = VNError::posix(status.code, path, status.step);
    if (status.step.find("flags") != std::string::npos)
      logLine(VNLogTypeError, __LINE__, "Failed to chflags() source attributes to the destination path(%s). errno:%d",
              path, status.code);
    else
      logLine(VNLogTypeError, __LINE__, "Failed to set source attributes to the destination path(%s). %s", path,
              failure.localizedDescription());
    VNSetError(error_, std::move(failure));
    return false;
  }

  std::string sourceRoot_;
  std::string destinationRoot_;
  VNError* error_;
  // The destination folders of the walk's way down.
  VNFolderTrail folders_{O_RDONLY};
  std::shared_ptr<VNCopyItem> copy_ = VNPlatformSlot<VNCopyItem>::get();
};

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

bool VNUDataTemplateUtilities::_forceAttributesOfSrcPath(const VNFileURL& srcPath, const VNFileURL& dstPath,
                                                         VNError* error) {
  return VNForceAttributesBelow(srcPath.path(), VNAtPath(dstPath.path()), dstPath.path(), error);
}

bool VNForceAttributesBelow(const std::string& source, VNAtPath destination, const std::string& destinationPath,
                            VNError* error) {
  VNUniqueFd root(::openat(destination.dirfd, destination.path, kFolderFlags));
  struct stat status {};
  if (!root || ::fstat(root.get(), &status) != 0) {
    if (errno == ENOENT) return reportMissing();
    logLine(VNLogTypeError, __LINE__, "Not forcing attributes below %s: %s", destinationPath,
            VNError::posix(errno, destinationPath, "open folder").localizedDescription());
    return true;
  }
  return Forcing(withoutTrailingSlashes(source), withoutTrailingSlashes(destinationPath), error)
      .run(std::move(root), status);
}
