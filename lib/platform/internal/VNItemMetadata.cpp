// Carrying one item's metadata over, in the order the kernel needs: owner,
// permission bits (a change of owner clears set-id bits), extended attributes
// and ACLs, times, and the file flags last (immutable and append-only refuse
// every later change).
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/VNFileFlags.h"
#include "platform/VNPlatformService.h"
#include "platform/internal/VNFlagsWord.h"
#include "platform/internal/VNItemCopy.h"

namespace {

constexpr const char* kAclNames[] = {"system.posix_acl_access", "system.posix_acl_default"};
constexpr std::uint64_t kLockingAttributes = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;

bool isAcl(const std::string& name) { return name.rfind("system.posix_acl_", 0) == 0; }

// Attributes of the four generic namespaces belong to the item. Others are
// properties of one file system (btrfs.compression mirrors the compressed
// flag, which travels by its own means) that another could not take.
bool isItemAttribute(const std::string& name) {
  for (const char* prefix : {"user.", "trusted.", "security.", "system."})
    if (name.rfind(prefix, 0) == 0) return true;
  return false;
}

// The item a flags-service call names: the held descriptor itself.
VNAtPath heldItem(const VNItemSide& side) { return VNAtPath(side.fd.get(), ""); }

}  // namespace

VNFsStatus VNItemCopy::carryMetadata() {
  const bool stat = has(VNCopyOption::Stat);
  const bool attributes = has(VNCopyOption::ACL) || has(VNCopyOption::Xattr);
  if (!stat && !attributes) return {};
  std::optional<std::uint32_t> lockedWord;
  if (!created_.active()) {
    if (VNFsStatus status = unlockExisting(&lockedWord); !status.ok()) return status;
  }
  VNFsStatus status = carrySteps(stat);
  // Put back the locking flags the steps did not replace; after a failure
  // the first error is the one to report.
  if (lockedWord && (!status.ok() || !stat)) {
    VNFsStatus restored = VNPlatformSlot<VNFileFlags>::get()->setFlags(heldItem(to_), *lockedWord);
    if (status.ok() && !restored.ok()) status = fail(restored.code, restored.step, destination_);
  }
  return status;
}

VNFsStatus VNItemCopy::carrySteps(bool stat) {
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
VNFsStatus VNItemCopy::unlockExisting(std::optional<std::uint32_t>* lockedWord) {
  if (!VNHasInodeFlags(to_.st.st_mode)) return {};
  if (VNStatxReportsInodeFlags(to_.sx) && !(to_.sx.stx_attributes & kLockingAttributes)) return {};
  auto flags = VNPlatformSlot<VNFileFlags>::get();
  std::uint32_t word = 0;
  VNFsStatus status = flags->getFlags(heldItem(to_), &word);
  const std::uint32_t locking = VNFileFlag::ImmutableMask | VNFileFlag::AppendOnlyMask;
  if (status.ok() && (word & locking)) {
    status = flags->setFlags(heldItem(to_), word & ~locking);
    if (status.ok()) *lockedWord = word;
  }
  return status.ok() ? status : fail(status.code, status.step, destination_);
}

VNFsStatus VNItemCopy::setOwner() {
  if (to_.st.st_uid == from_.st.st_uid && to_.st.st_gid == from_.st.st_gid) return {};
  if (::fchownat(to_.fd.get(), "", from_.st.st_uid, from_.st.st_gid, AT_EMPTY_PATH) != 0)
    return fail(errno, "set owner of", destination_);
  ownerChanged_ = true;
  return {};
}

// Symbolic links have no permission bits of their own on Linux. A new item
// usually has the right bits already; a change of owner may have cleared
// set-id bits, so then they are always set again.
VNFsStatus VNItemCopy::setMode() {
  if (S_ISLNK(to_.st.st_mode)) return {};
  const mode_t mode = from_.st.st_mode & 07777;
  if (!ownerChanged_ && (to_.st.st_mode & 07777) == mode) return {};
  int result = to_.pathOnly ? ::fchmodat(AT_FDCWD, VNProcFdPath(to_.fd.get()).c_str(), mode, 0)
                            : ::fchmod(to_.fd.get(), mode);
  return result == 0 ? VNFsStatus{} : fail(errno, "set permissions of", destination_);
}

VNFsStatus VNItemCopy::copyAttributes() {
  const bool acl = has(VNCopyOption::ACL);
  const bool xattr = has(VNCopyOption::Xattr);
  if (!acl && !xattr) return {};
  std::vector<std::string> names;
  if (int code = VNListXattrs(from_.held(), &names)) return fail(code, "list extended attributes of", source_);
  namesListed_ = true;
  for (const std::string& name : names) {
    if (name == VNFileFlagsAttributeName) flagsAttributeListed_ = true;
    if (!(isAcl(name) ? acl : xattr) || name == VNFileFlagsAttributeName || !isItemAttribute(name)) continue;
    std::string value;
    int code = VNGetXattr(from_.held(), name.c_str(), &value);
    if (code == ENODATA) continue;  // removed since it was listed
    if (code) return fail(code, "read extended attribute " + name + " of", source_);
    if ((code = VNSetXattr(to_.held(), name.c_str(), value)))
      return fail(code, "set extended attribute " + name + " of", destination_);
  }
  return acl ? removeExtraAcls(names) : VNFsStatus{};
}

// An ACL the destination got from its parent's default ACL, and the source
// does not have, would change who may access the copy.
VNFsStatus VNItemCopy::removeExtraAcls(const std::vector<std::string>& sourceNames) {
  std::vector<std::string> names;
  if (int code = VNListXattrs(to_.held(), &names)) return fail(code, "list extended attributes of", destination_);
  for (const char* acl : kAclNames) {
    bool inSource = std::find(sourceNames.begin(), sourceNames.end(), acl) != sourceNames.end();
    bool inDestination = std::find(names.begin(), names.end(), acl) != names.end();
    if (inDestination && !inSource) {
      if (int code = VNRemoveXattr(to_.held(), acl)) return fail(code, std::string("remove ") + acl + " of", destination_);
    }
  }
  return {};
}

VNFsStatus VNItemCopy::setTimes() {
  const struct timespec times[2] = {from_.st.st_atim, from_.st.st_mtim};
  int result = to_.pathOnly ? ::utimensat(AT_FDCWD, VNProcFdPath(to_.fd.get()).c_str(), times, 0)
                            : ::futimens(to_.fd.get(), times);
  return result == 0 ? VNFsStatus{} : fail(errno, "set times of", destination_);
}

// The source's word from the statx made when it was opened and its flags
// attribute, which is read only when the attribute listing showed it (or
// none was made); the flags service where statx does not tell.
VNFsStatus VNItemCopy::sourceFlags(std::uint32_t* word) {
  if (!VNStatxReportsInodeFlags(from_.sx)) {
    VNFsStatus status = VNPlatformSlot<VNFileFlags>::get()->getFlags(heldItem(from_), word);
    return status.ok() ? status : fail(status.code, status.step, source_);
  }
  std::optional<std::uint32_t> attribute;
  if (!namesListed_ || flagsAttributeListed_) {
    if (int code = VNReadFlagsAttribute(from_.held(), &attribute)) return fail(code, "read flags attribute of", source_);
  }
  *word = *VNFlagsWordFromStatx(from_.sx, attribute);
  return {};
}

// A destination without compression takes the rest of the word. A new item
// whose word already matches (no flags on either side, as a rule) is left
// alone: it has no flags attribute, and statx told its inode flags.
VNFsStatus VNItemCopy::setFlags() {
  std::uint32_t word = 0;
  if (VNFsStatus status = sourceFlags(&word); !status.ok()) return status;
  if (created_.active() && VNFlagsWordFromStatx(to_.sx, std::nullopt) == word) return {};
  auto flags = VNPlatformSlot<VNFileFlags>::get();
  VNFsStatus status = flags->setFlags(heldItem(to_), word);
  if (status.code == EOPNOTSUPP && (word & VNFileFlag::Compressed))
    status = flags->setFlags(heldItem(to_), word & ~VNFileFlag::Compressed);
  return status.ok() ? status : fail(status.code, status.step, destination_);
}
