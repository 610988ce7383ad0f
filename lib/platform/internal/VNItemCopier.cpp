#include "platform/internal/VNItemCopier.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "platform/VNCompression.h"
#include "platform/VNFileFlags.h"
#include "platform/VNPlatformService.h"
#include "platform/internal/VNItemFd.h"

namespace {

constexpr const char* kAclNames[] = {"system.posix_acl_access", "system.posix_acl_default"};

bool isAcl(const std::string& name) { return name.rfind("system.posix_acl_", 0) == 0; }

// Attributes of the four generic namespaces belong to the item. Others are
// properties of one file system (btrfs.compression mirrors the compressed
// flag, which travels by its own means) that another could not take.
bool isItemAttribute(const std::string& name) {
  for (const char* prefix : {"user.", "trusted.", "security.", "system."})
    if (name.rfind(prefix, 0) == 0) return true;
  return false;
}

VNFsStatus fail(int code, std::string step, VNAtPath item) {
  return VNFsStatus::failure(code, std::move(step), item.path);
}

// Removes the item a failed copy created, unless dismissed.
class CreatedItem {
 public:
  explicit CreatedItem(VNAtPath item) : item_(item) {}
  ~CreatedItem() {
    if (created_) ::unlinkat(item_.dirfd, item_.path, directory_ ? AT_REMOVEDIR : 0);
  }
  CreatedItem(const CreatedItem&) = delete;
  CreatedItem& operator=(const CreatedItem&) = delete;

  void created(bool directory) {
    created_ = true;
    directory_ = directory;
  }
  void dismiss() { created_ = false; }
  bool active() const { return created_; }

 private:
  VNAtPath item_;
  bool created_ = false;
  bool directory_ = false;
};

// Removes what is at `destination` so that a `source` of this kind can be
// laid down; a directory stays for a directory.
VNFsStatus removeExisting(VNAtPath destination, const struct stat& source) {
  if (::unlinkat(destination.dirfd, destination.path, 0) == 0 || errno == ENOENT) return {};
  if (errno != EISDIR) return fail(errno, "remove existing item", destination);
  if (S_ISDIR(source.st_mode)) return {};
  if (::unlinkat(destination.dirfd, destination.path, AT_REMOVEDIR) == 0) return {};
  return fail(errno, "remove existing item", destination);
}

VNFsStatus readLinkTarget(int sourceFd, VNAtPath source, std::string* target) {
  std::string buffer(256, '\0');
  for (;;) {
    ssize_t n = ::readlinkat(sourceFd, "", buffer.data(), buffer.size());
    if (n < 0) return fail(errno, "read symbolic link", source);
    if (static_cast<size_t>(n) < buffer.size()) {
      buffer.resize(static_cast<size_t>(n));
      *target = std::move(buffer);
      return {};
    }
    buffer.resize(buffer.size() * 2);
  }
}

class ItemCopy {
 public:
  ItemCopy(VNAtPath source, VNAtPath destination, VNCopyOptions options)
      : source_(source), destination_(destination), options_(options), created_(destination) {}

  VNFsStatus run(VNItemCopier::Data data, VNContentMethodMemory* methods) {
    bool follow = !VNHasOption(options_, VNCopyOption::NoFollow);
    if (int code = VNOpenItem(source_, follow, &sourceFd_)) return fail(code, "open", source_);
    if (::fstat(sourceFd_.get(), &sourceStat_) != 0) return fail(errno, "read status of", source_);
    VNFsStatus status;
    if (VNHasOption(options_, VNCopyOption::UnlinkFirst))
      status = removeExisting(destination_, sourceStat_);
    if (status.ok())
      status = VNHasOption(options_, VNCopyOption::Data) ? create(data, methods) : openDestination();
    if (status.ok() && ::fstat(destinationFd_.get(), &destinationStat_) != 0)
      status = fail(errno, "read status of", destination_);
    if (status.ok()) status = carryMetadata();
    if (status.ok()) created_.dismiss();
    return status;
  }

 private:
  VNFsStatus openDestination() {
    int code = VNOpenItem(destination_, /*follow=*/false, &destinationFd_);
    return code ? fail(code, "open", destination_) : VNFsStatus{};
  }

  VNFsStatus create(VNItemCopier::Data data, VNContentMethodMemory* methods) {
    mode_t kind = sourceStat_.st_mode & S_IFMT;
    if (kind == S_IFREG) return createFile(data, methods);
    if (kind == S_IFDIR) return createDirectory();
    if (kind == S_IFLNK) {
      std::string target;
      if (VNFsStatus status = readLinkTarget(sourceFd_.get(), source_, &target); !status.ok())
        return status;
      if (::symlinkat(target.c_str(), destination_.dirfd, destination_.path) != 0)
        return fail(errno, "create symbolic link", destination_);
    } else if (::mknodat(destination_.dirfd, destination_.path, kind | 0600, sourceStat_.st_rdev) != 0) {
      return fail(errno, "create special file", destination_);
    }
    created_.created(/*directory=*/false);
    return openDestination();
  }

  VNFsStatus createDirectory() {
    if (::mkdirat(destination_.dirfd, destination_.path, 0700) == 0)
      created_.created(/*directory=*/true);
    else if (errno != EEXIST)
      return fail(errno, "create directory", destination_);
    int fd = ::openat(destination_.dirfd, destination_.path,
                      O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return fail(errno == ELOOP ? ENOTDIR : errno, "create directory", destination_);
    destinationFd_.reset(fd);
    return {};
  }

  VNFsStatus createFile(VNItemCopier::Data data, VNContentMethodMemory* methods) {
    VNUniqueFd input;
    if (int code = VNReopenItem(sourceFd_.get(), O_RDONLY, &input)) return fail(code, "open", source_);
    int fd = ::openat(destination_.dirfd, destination_.path,
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    bool createdHere = fd >= 0;
    if (createdHere) {
      created_.created(/*directory=*/false);
    } else if (errno == EEXIST && data == VNItemCopier::Data::AnyMethod) {
      if (VNFsStatus status = openExistingFile(&fd); !status.ok()) return status;
    } else {
      return fail(errno, "create file", destination_);
    }
    destinationFd_.reset(fd);
    struct stat target {};
    if (::fstat(fd, &target) != 0) return fail(errno, "read status of", destination_);
    if (data == VNItemCopier::Data::AnyMethod) {
      if (VNFsStatus status = keepCompression(); !status.ok()) return status;
    }
    bool cloneOnly = data == VNItemCopier::Data::CloneOnly;
    VNContentMethod method = methods->methodFor(sourceStat_.st_dev, target.st_dev);
    VNContentMethod before = method;
    VNContentResult result = VNCopyContent(input.get(), fd, sourceStat_.st_size, cloneOnly, &method);
    if (method != before) methods->remember(sourceStat_.st_dev, target.st_dev, method);
    if (result.code) return fail(result.code, result.step, result.onSource ? source_ : destination_);
    return {};
  }

  // Without unlink-first an existing regular file is overwritten in place;
  // anything else there is refused, a symbolic link above all (ELOOP).
  VNFsStatus openExistingFile(int* fd) {
    VNUniqueFd existing;
    if (int code = VNOpenItem(destination_, /*follow=*/false, &existing)) return fail(code, "open", destination_);
    struct stat st {};
    if (::fstat(existing.get(), &st) != 0) return fail(errno, "read status of", destination_);
    if (!S_ISREG(st.st_mode)) {
      int code = S_ISLNK(st.st_mode) ? ELOOP : S_ISDIR(st.st_mode) ? EISDIR : EEXIST;
      return fail(code, "create file", destination_);
    }
    VNUniqueFd output;
    if (int code = VNReopenItem(existing.get(), O_WRONLY | O_TRUNC, &output))
      return fail(code, "open", destination_);
    *fd = output.release();
    return {};
  }

  // Marks the new file compressed before its data arrives, so that the data
  // is stored compressed where the source's is. ENOTSUP on either side means
  // a file system without compression: the data is stored plainly.
  VNFsStatus keepCompression() {
    auto compression = VNPlatformSlot<VNCompression>::get();
    bool compressed = false;
    VNFsStatus status = compression->isCompressed(VNAtPath(sourceFd_.get(), ""), &compressed);
    if (status.code == ENOTSUP) return {};
    if (!status.ok()) return fail(status.code, status.step, source_);
    if (!compressed) return {};
    status = compression->setCompressed(VNAtPath(destinationFd_.get(), ""), true);
    if (status.code == ENOTSUP) return {};
    return status.ok() ? status : fail(status.code, status.step, destination_);
  }

  VNFsStatus carryMetadata() {
    bool stat = VNHasOption(options_, VNCopyOption::Stat);
    bool attributes = VNHasOption(options_, VNCopyOption::ACL) || VNHasOption(options_, VNCopyOption::Xattr);
    if (!stat && !attributes) return {};
    std::optional<std::uint32_t> lockedWord;
    if (!created_.active()) {
      if (VNFsStatus status = unlockExisting(&lockedWord); !status.ok()) return status;
    }
    VNFsStatus status = carrySteps(stat);
    // Put back the locking flags the steps did not replace; after a failure
    // the first error is the one to report.
    if (lockedWord && (!status.ok() || !stat)) {
      VNFsStatus restored = VNPlatformSlot<VNFileFlags>::get()->setFlags(
          VNAtPath(destinationFd_.get(), ""), *lockedWord);
      if (status.ok() && !restored.ok()) status = fail(restored.code, restored.step, destination_);
    }
    return status;
  }

  VNFsStatus carrySteps(bool stat) {
    if (stat) {
      if (VNFsStatus status = setOwner(); !status.ok()) return status;
      if (VNFsStatus status = setMode(); !status.ok()) return status;
    }
    if (VNFsStatus status = copyAttributes(); !status.ok()) return status;
    if (stat) {
      if (VNFsStatus status = setTimes(); !status.ok()) return status;
      if (VNFsStatus status = setFlags(); !status.ok()) return status;
    }
    return {};
  }

  // A destination that was there before (a folder whose stat fields come
  // after its contents, an item copied onto again) may be immutable or
  // append-only, which refuses every metadata change: lift those flags for
  // the steps. Only regular files and folders have them enforced.
  VNFsStatus unlockExisting(std::optional<std::uint32_t>* lockedWord) {
    if (!S_ISREG(destinationStat_.st_mode) && !S_ISDIR(destinationStat_.st_mode)) return {};
    auto flags = VNPlatformSlot<VNFileFlags>::get();
    std::uint32_t word = 0;
    VNFsStatus status = flags->getFlags(VNAtPath(destinationFd_.get(), ""), &word);
    const std::uint32_t locking = VNFileFlag::ImmutableMask | VNFileFlag::AppendOnlyMask;
    if (status.ok() && (word & locking)) {
      status = flags->setFlags(VNAtPath(destinationFd_.get(), ""), word & ~locking);
      if (status.ok()) *lockedWord = word;
    }
    return status.ok() ? status : fail(status.code, status.step, destination_);
  }

  VNFsStatus setOwner() {
    if (destinationStat_.st_uid == sourceStat_.st_uid && destinationStat_.st_gid == sourceStat_.st_gid)
      return {};
    if (::fchownat(destinationFd_.get(), "", sourceStat_.st_uid, sourceStat_.st_gid, AT_EMPTY_PATH) != 0)
      return fail(errno, "set owner of", destination_);
    ownerChanged_ = true;
    return {};
  }

  // Symbolic links have no permission bits of their own on Linux. A new
  // item usually has the right bits already; a change of owner may have
  // cleared set-id bits, so then they are always set again.
  VNFsStatus setMode() {
    if (S_ISLNK(destinationStat_.st_mode)) return {};
    if (!ownerChanged_ && (destinationStat_.st_mode & 07777) == (sourceStat_.st_mode & 07777)) return {};
    if (::fchmodat(AT_FDCWD, VNProcFdPath(destinationFd_.get()).c_str(), sourceStat_.st_mode & 07777, 0) != 0)
      return fail(errno, "set permissions of", destination_);
    return {};
  }

  VNFsStatus copyAttributes() {
    bool acl = VNHasOption(options_, VNCopyOption::ACL);
    bool xattr = VNHasOption(options_, VNCopyOption::Xattr);
    if (!acl && !xattr) return {};
    std::vector<std::string> names;
    if (int code = VNListXattrs(sourceFd_.get(), &names))
      return fail(code, "list extended attributes of", source_);
    for (const std::string& name : names) {
      if (!(isAcl(name) ? acl : xattr) || name == VNFileFlagsAttributeName || !isItemAttribute(name))
        continue;
      std::string value;
      int code = VNGetXattr(sourceFd_.get(), name.c_str(), &value);
      if (code == ENODATA) continue;  // removed since it was listed
      if (code) return fail(code, "read extended attribute " + name + " of", source_);
      if ((code = VNSetXattr(destinationFd_.get(), name.c_str(), value)))
        return fail(code, "set extended attribute " + name + " of", destination_);
    }
    return acl ? removeExtraAcls(names) : VNFsStatus{};
  }

  // An ACL the destination got from its parent's default ACL, and the
  // source does not have, would change who may access the copy.
  VNFsStatus removeExtraAcls(const std::vector<std::string>& sourceNames) {
    std::vector<std::string> names;
    if (int code = VNListXattrs(destinationFd_.get(), &names))
      return fail(code, "list extended attributes of", destination_);
    for (const char* acl : kAclNames) {
      bool inSource = std::find(sourceNames.begin(), sourceNames.end(), acl) != sourceNames.end();
      bool inDestination = std::find(names.begin(), names.end(), acl) != names.end();
      if (inDestination && !inSource) {
        if (int code = VNRemoveXattr(destinationFd_.get(), acl))
          return fail(code, std::string("remove ") + acl + " of", destination_);
      }
    }
    return {};
  }

  VNFsStatus setTimes() {
    const struct timespec times[2] = {sourceStat_.st_atim, sourceStat_.st_mtim};
    if (::utimensat(AT_FDCWD, VNProcFdPath(destinationFd_.get()).c_str(), times, 0) != 0)
      return fail(errno, "set times of", destination_);
    return {};
  }

  // The flags word goes last: immutable and append-only refuse every later
  // change. A destination without compression takes the rest of the word.
  VNFsStatus setFlags() {
    auto flags = VNPlatformSlot<VNFileFlags>::get();
    std::uint32_t word = 0;
    VNFsStatus status = flags->getFlags(VNAtPath(sourceFd_.get(), ""), &word);
    if (!status.ok()) return fail(status.code, status.step, source_);
    status = flags->setFlags(VNAtPath(destinationFd_.get(), ""), word);
    if (status.code == EOPNOTSUPP && (word & VNFileFlag::Compressed))
      status = flags->setFlags(VNAtPath(destinationFd_.get(), ""), word & ~VNFileFlag::Compressed);
    return status.ok() ? status : fail(status.code, status.step, destination_);
  }

  VNAtPath source_;
  VNAtPath destination_;
  VNCopyOptions options_;
  CreatedItem created_;
  VNUniqueFd sourceFd_;
  VNUniqueFd destinationFd_;
  struct stat sourceStat_ {};
  struct stat destinationStat_ {};
  bool ownerChanged_ = false;
};

}  // namespace

VNFsStatus VNItemCopier::copy(VNAtPath source, VNAtPath destination, VNCopyOptions options, Data data) {
  return ItemCopy(source, destination, options).run(data, &methods_);
}
