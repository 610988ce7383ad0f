#include "platform/internal/VNFlagsWord.h"

#include <linux/fs.h>

#include <cerrno>
#include <cstdlib>

#include "platform/VNFileFlags.h"

namespace {

using namespace VNFileFlag;

constexpr std::uint64_t kLockAttributes = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND | STATX_ATTR_NODUMP;
// Bits the inode flags carry alone; the attribute never repeats them.
constexpr std::uint32_t kInodeOnlyBits = NoDump | Compressed;

// The spelling of one lockable flag: what the attribute says, or the user
// spelling when it says nothing; nothing at all when the inode flag is off.
std::uint32_t spelling(bool inodeHasFlag, std::uint32_t attribute, std::uint32_t mask, std::uint32_t userBit) {
  if (!inodeHasFlag) return 0;
  return (attribute & mask) ? (attribute & mask) : userBit;
}

}  // namespace

bool VNHasInodeFlags(mode_t mode) { return S_ISREG(mode) || S_ISDIR(mode); }

unsigned VNInodeFlagsFromStatx(const struct statx& status) {
  unsigned inode = 0;
  if (status.stx_attributes & STATX_ATTR_IMMUTABLE) inode |= FS_IMMUTABLE_FL;
  if (status.stx_attributes & STATX_ATTR_APPEND) inode |= FS_APPEND_FL;
  if (status.stx_attributes & STATX_ATTR_NODUMP) inode |= FS_NODUMP_FL;
  if (status.stx_attributes & STATX_ATTR_COMPRESSED) inode |= FS_COMPR_FL;
  return inode;
}

bool VNStatxReportsInodeFlags(const struct statx& status) {
  return !VNHasInodeFlags(status.stx_mode) ||
         (status.stx_attributes_mask & kLockAttributes) == kLockAttributes;
}

std::optional<bool> VNStatxCompressed(const struct statx& status) {
  if (!VNHasInodeFlags(status.stx_mode)) return std::nullopt;
  if (status.stx_attributes_mask & STATX_ATTR_COMPRESSED)
    return (status.stx_attributes & STATX_ATTR_COMPRESSED) != 0;
  if (VNStatxReportsInodeFlags(status)) return false;
  return std::nullopt;
}

std::uint32_t VNMergedFlagsWord(bool hasInodeFlags, unsigned inode, std::optional<std::uint32_t> attribute) {
  std::uint32_t stored = attribute.value_or(0);
  if (!hasInodeFlags) return stored;
  std::uint32_t word = stored & ~(kInodeOnlyBits | ImmutableMask | AppendOnlyMask);
  if (inode & FS_NODUMP_FL) word |= NoDump;
  if (inode & FS_COMPR_FL) word |= Compressed;
  word |= spelling(inode & FS_IMMUTABLE_FL, stored, ImmutableMask, UserImmutable);
  word |= spelling(inode & FS_APPEND_FL, stored, AppendOnlyMask, UserAppendOnly);
  return word;
}

std::optional<std::uint32_t> VNFlagsWordFromStatx(const struct statx& status,
                                                  std::optional<std::uint32_t> attribute) {
  if (!VNStatxReportsInodeFlags(status)) return std::nullopt;
  return VNMergedFlagsWord(VNHasInodeFlags(status.stx_mode), VNInodeFlagsFromStatx(status), attribute);
}

int VNReadFlagsAttribute(VNHeldFd item, std::optional<std::uint32_t>* value) {
  std::string text;
  std::uint32_t parsed = 0;
  value->reset();
  int code = VNGetXattr(item, VNFileFlagsAttributeName, &text);
  if (code == ENODATA) return 0;
  if (code) return code;
  if (!VNParseFlagsAttribute(text, &parsed)) return EINVAL;
  *value = parsed;
  return 0;
}

bool VNParseFlagsAttribute(const std::string& text, std::uint32_t* value) {
  if (text.size() < 3 || text.size() > 10 || text.compare(0, 2, "0x") != 0 ||
      text.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos)
    return false;
  *value = static_cast<std::uint32_t>(std::strtoul(text.c_str() + 2, nullptr, 16));
  return true;
}
