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
#include <fts.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "common/VNLogging.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "datatemplate/internal/VNAttributeForcing.h"
#include "foundation/VNFormat.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNCopyItem.h"
#include "platform/VNPlatformService.h"

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

struct FtsClose {
  void operator()(FTS* walk) const { ::fts_close(walk); }
};

class Forcing {
 public:
  Forcing(std::string sourceRoot, std::string destinationRoot, VNUniqueFd destination, VNError* error)
      : sourceRoot_(std::move(sourceRoot)), destinationRoot_(std::move(destinationRoot)), error_(error) {
    folders_.push_back(std::move(destination));
  }

  bool run() {
    char* roots[] = {sourceRoot_.data(), nullptr};
    std::unique_ptr<FTS, FtsClose> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr));
    if (!walk) return true;
    while (FTSENT* entry = ::fts_read(walk.get())) {
      if (entry->fts_level == FTS_ROOTLEVEL) {
        if (entry->fts_info != FTS_D && entry->fts_info != FTS_DP) return true;  // nothing below it
        continue;
      }
      if (!visit(walk.get(), entry)) return false;
    }
    return true;
  }

 private:
  bool visit(FTS* walk, FTSENT* entry) {
    switch (entry->fts_info) {
      case FTS_NS: return failToRead(entry);
      case FTS_D: return enterFolder(walk, entry);
      case FTS_DP: return leaveFolder(entry);
      case FTS_DNR: case FTS_F: case FTS_SL: case FTS_SLNONE: case FTS_DEFAULT:
        return forceItem(entry);
      default:
        return true;
    }
  }

  int parentFd(const FTSENT* entry) const { return folders_[static_cast<std::size_t>(entry->fts_level) - 1].get(); }

  std::string destinationPath(const FTSENT* entry) const {
    return destinationRoot_ + (entry->fts_path + sourceRoot_.size());
  }

  // A folder of the template is held on the destination before its contents
  // are forced; its own attributes follow them. Where the destination has
  // no folder of that name, nothing below it is visited.
  bool enterFolder(FTS* walk, FTSENT* entry) {
    VNUniqueFd folder(::openat(parentFd(entry), entry->fts_name, kFolderFlags));
    if (folder) {
      folders_.push_back(std::move(folder));
      return true;
    }
    ::fts_set(walk, entry, FTS_SKIP);
    return errno == ENOENT ? reportMissing() : forceItem(entry);
  }

  // A folder passed over on entry (the walk reports it again when skipped)
  // holds no descriptor of its level.
  bool leaveFolder(const FTSENT* entry) {
    const auto level = static_cast<std::size_t>(entry->fts_level);
    if (folders_.size() <= level) return true;
    bool forced = forceItem(entry);
    folders_.resize(level);
    return forced;
  }

  bool failToRead(const FTSENT* entry) {
    VNError failure = VNError::posix(entry->fts_errno, entry->fts_path, "read attributes of");
    logLine(VNLogTypeError, __LINE__, "Failed to get attributes of SRCPath(%s). %@", entry->fts_path,
            failure.localizedDescription());
    VNSetError(error_, std::move(failure));
    return false;
  }

  bool forceItem(const FTSENT* entry) {
    const std::string destination = destinationPath(entry);
    logLine(VNLogTypeDefault, __LINE__, "Copying attributes and flags (%s)->(%s)", entry->fts_path, destination);
    VNFsStatus status = copy_->copyItem(VNAtPath(entry->fts_path), VNAtPath(parentFd(entry), entry->fts_name),
                                        VNCopyOptionSet::StatOnly);
    if (status.ok()) return true;
    // The destination is named by its bare name; the source by its whole path.
    const bool onDestination = status.path == entry->fts_name;
    if (onDestination && status.code == ENOENT && status.step == "open") return reportMissing();
    const std::string path = onDestination ? destination : status.path;
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
  // The destination folder of each level of the walk being visited.
  std::vector<VNUniqueFd> folders_;
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
  if (!root) {
    if (errno == ENOENT) return reportMissing();
    logLine(VNLogTypeError, __LINE__, "Not forcing attributes below %s: %s", destinationPath,
            VNError::posix(errno, destinationPath, "open folder").localizedDescription());
    return true;
  }
  return Forcing(withoutTrailingSlashes(source), withoutTrailingSlashes(destinationPath), std::move(root), error).run();
}
