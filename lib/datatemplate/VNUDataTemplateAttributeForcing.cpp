// Forcing the template's attributes onto the items of the same names on a
// data volume, after the shove has merged the template into it.
#include <fcntl.h>
#include <fts.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "common/VNLogging.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "foundation/VNFormat.h"
#include "platform/VNFileFlags.h"
#include "platform/VNPlatformService.h"

namespace {

constexpr const char* kFunction = "+[VNUDataTemplateUtilities _forceAttributesOfSrcPath:toDstPath:error:]";

template <class... Args>
void logLine(VNLogType type, int line, std::string_view format, const Args&... args) {
  VNLogging::logType(type, kFunction, line, VNFormat(format, args...));
}

struct FtsClose {
  void operator()(FTS* walk) const { ::fts_close(walk); }
};

// Applies owner, group, permission bits and modification time of `source` to
// the item at `destination` itself. The data volume belongs to its users: a
// symbolic link there may point anywhere, even out of the volume, so every
// call acts on the link rather than its target (a link's own permission
// bits do not exist on Linux and are left alone). Linux keeps no settable
// creation date; the access time stays as it is.
int applyAttributes(const struct stat& source, const char* destination, bool destinationIsLink) {
  if (::fchownat(AT_FDCWD, destination, source.st_uid, source.st_gid, AT_SYMLINK_NOFOLLOW) != 0)
    return errno;
  if (!destinationIsLink && ::fchmodat(AT_FDCWD, destination, source.st_mode & 07777, 0) != 0)
    return errno;
  const struct timespec times[2] = {{0, UTIME_OMIT}, source.st_mtim};
  if (::utimensat(AT_FDCWD, destination, times, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  return 0;
}

// Sets the destination's flags word to the source's, on the item itself.
// The immutable and append-only flags travel in this word; they are set here
// rather than with the other attributes because once set they would refuse
// the flags word itself. A source whose word can't be read is passed over,
// as one whose status can't be read is.
bool forceFlags(const char* source, const std::string& destination, VNError* error) {
  auto flags = VNPlatformSlot<VNFileFlags>::get();
  std::uint32_t word = 0;
  if (!flags->getFlags(source, &word).ok()) return true;
  VNFsStatus status = flags->setFlags(destination, word);
  if (status.ok()) return true;
  int code = status.code ? status.code : EIO;
  logLine(VNLogTypeError, __LINE__, "Failed to chflags() source attributes to the destination path(%s). errno:%d",
          destination, code);
  VNSetError(error, VNError(VNPOSIXErrorDomain, code, {{VNFilePathErrorKey, VNValue(destination)}}));
  return false;
}

// One item below the source folder; false ends the walk with `error` set.
bool forceItem(const FTSENT* entry, const std::string& destination, VNError* error) {
  if (entry->fts_info == FTS_NS) {
    VNError failure = VNError::posix(entry->fts_errno, entry->fts_path, "read attributes of");
    logLine(VNLogTypeError, __LINE__, "Failed to get attributes of SRCPath(%s). %@", entry->fts_path,
            failure.localizedDescription());
    VNSetError(error, std::move(failure));
    return false;
  }
  struct stat existing {};
  if (::stat(destination.c_str(), &existing) != 0) {
    logLine(VNLogTypeError, __LINE__, "File does not exist at the destination we're copying attributes to.");
    return true;
  }
  logLine(VNLogTypeDefault, __LINE__, "Copying attributes and flags (%s)->(%s)", entry->fts_path, destination);
  struct stat target {};
  int code = ::lstat(destination.c_str(), &target) == 0
                 ? applyAttributes(*entry->fts_statp, destination.c_str(), S_ISLNK(target.st_mode))
                 : errno;
  if (code != 0) {
    VNError failure = VNError::posix(code, destination, "set attributes of");
    logLine(VNLogTypeError, __LINE__, "Failed to set source attributes to the destination path(%s). %s",
            destination, failure.localizedDescription());
    VNSetError(error, std::move(failure));
    return false;
  }
  return forceFlags(entry->fts_path, destination, error);
}

bool isItemKind(int info) {
  switch (info) {
    case FTS_D: case FTS_DNR: case FTS_F: case FTS_SL: case FTS_SLNONE: case FTS_DEFAULT: case FTS_NS:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool VNUDataTemplateUtilities::_forceAttributesOfSrcPath(const VNFileURL& srcPath,
                                                         const VNFileURL& dstPath, VNError* error) {
  std::string root = srcPath.path();
  char* roots[] = {root.data(), nullptr};
  std::unique_ptr<FTS, FtsClose> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr));
  if (!walk) return true;
  std::string destination;
  while (FTSENT* entry = ::fts_read(walk.get())) {
    if (entry->fts_level == FTS_ROOTLEVEL) {
      if (entry->fts_info != FTS_D) return true;  // nothing to walk below it
      continue;
    }
    if (!isItemKind(entry->fts_info)) continue;
    destination.assign(dstPath.path()).append(entry->fts_path + root.size());
    if (!forceItem(entry, destination, error)) return false;
  }
  return true;
}
