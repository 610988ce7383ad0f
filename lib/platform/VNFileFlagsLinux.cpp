// The file-flags word on Linux: inode flags plus the trusted.varnel.flags
// extended attribute.
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cinttypes>
#include <optional>

#include "foundation/VNFormat.h"
#include "platform/VNFileFlags.h"
#include "platform/internal/VNFlagsWord.h"
#include "platform/internal/VNItemFd.h"

extern "C" {
const char* const VNFileFlagsAttributeName = "trusted.varnel.flags";
}

namespace {

using namespace VNFileFlag;

constexpr unsigned kMappedInodeFlags = FS_NODUMP_FL | FS_IMMUTABLE_FL | FS_APPEND_FL | FS_COMPR_FL;
constexpr unsigned kLockingInodeFlags = FS_IMMUTABLE_FL | FS_APPEND_FL;
// Bits the inode flags carry alone; the attribute never repeats them.
constexpr std::uint32_t kInodeOnlyBits = NoDump | Compressed;

bool isUnsupported(int code) {
  return code == ENOTTY || code == EOPNOTSUPP || code == ENOSYS || code == EINVAL;
}

unsigned inodeFlagsForWord(std::uint32_t word) {
  unsigned flags = 0;
  if (word & NoDump) flags |= FS_NODUMP_FL;
  if (word & ImmutableMask) flags |= FS_IMMUTABLE_FL;
  if (word & AppendOnlyMask) flags |= FS_APPEND_FL;
  if (word & Compressed) flags |= FS_COMPR_FL;
  return flags;
}

// What the attribute must hold for `word` on an item with inode flags;
// nothing when the inode flags say it all.
std::optional<std::uint32_t> attributeForWord(std::uint32_t word) {
  std::uint32_t attribute = word & ~kInodeOnlyBits;
  if ((attribute & ~(UserImmutable | UserAppendOnly)) == 0) return std::nullopt;
  return attribute;
}

class LinuxFileFlags final : public VNFileFlags {
 public:
  VNFsStatus getFlags(VNAtPath item, std::uint32_t* flags) override {
    if (canReadByPath(item)) return getFlagsByPath(item, flags);
    Item state;
    if (VNFsStatus status = load(item, &state); !status.ok()) return status;
    unsigned inode = 0;
    if (VNHasInodeFlags(state.mode)) {
      if (int code = readInodeFlags(state.fd.get(), &inode); code && !isUnsupported(code))
        return VNFsStatus::failure(code, "read flags of", item.path);
    }
    *flags = VNMergedFlagsWord(VNHasInodeFlags(state.mode), inode, state.attribute);
    return {};
  }

  VNFsStatus setFlags(VNAtPath item, std::uint32_t flags) override {
    // Most items already carry the word wanted (a new copy of a file without
    // flags): a cheap look saves opening the item.
    std::uint32_t now = 0;
    if (canReadByPath(item) && getFlagsByPath(item, &now).ok() && now == flags) return {};
    Item state;
    if (VNFsStatus status = load(item, &state); !status.ok()) return status;
    const VNUniqueFd& fd = state.fd;
    const std::optional<std::uint32_t>& current = state.attribute;
    if (!VNHasInodeFlags(state.mode)) {
      std::optional<std::uint32_t> wanted = flags ? std::optional(flags) : std::nullopt;
      return wanted == current ? VNFsStatus{} : writeAttribute(fd.get(), item, wanted);
    }

    VNUniqueFd io;
    if (int code = VNReopenItem(fd.get(), O_RDONLY | O_NONBLOCK, &io))
      return VNFsStatus::failure(code, "open", item.path);
    unsigned inode = 0;
    int readCode = VNGetInodeFlags(io.get(), &inode);
    if (readCode && !(isUnsupported(readCode) && inodeFlagsForWord(flags) == 0))
      return VNFsStatus::failure(isUnsupported(readCode) ? EOPNOTSUPP : readCode, "read flags of", item.path);

    std::optional<std::uint32_t> wanted = attributeForWord(flags);
    if (wanted != current) {
      // The kernel refuses attribute changes while the item is immutable or
      // append-only: lift those first, set them again below.
      if (inode & kLockingInodeFlags) {
        inode &= ~kLockingInodeFlags;
        if (int code = VNSetInodeFlags(io.get(), inode))
          return VNFsStatus::failure(code, "set flags of", item.path);
      }
      if (VNFsStatus status = writeAttribute(fd.get(), item, wanted); !status.ok()) return status;
    }
    unsigned target = (inode & ~kMappedInodeFlags) | inodeFlagsForWord(flags);
    if (readCode == 0 && target != inode) {
      if (int code = VNSetInodeFlags(io.get(), target))
        return VNFsStatus::failure(code, "set flags of", item.path);
    }
    return {};
  }

 private:
  // The common case avoids opening the item at all: statx reports the inode
  // flags as attributes and lgetxattr reads the attribute of the item itself,
  // never a link's target.
  static bool canReadByPath(VNAtPath item) {
    return item.path[0] == '\0' || item.dirfd == AT_FDCWD || item.path[0] == '/';
  }

  // The flags attribute of the item a path or a descriptor names, as
  // VNReadFlagsAttribute reads it; anything but our own spelling is not ours
  // to guess at.
  static int readAttributeOf(VNAtPath item, std::optional<std::uint32_t>* value) {
    if (item.path[0] == '\0') return VNReadFlagsAttribute({item.dirfd, true}, value);
    value->reset();
    char buffer[16];
    ssize_t n = ::lgetxattr(item.path, VNFileFlagsAttributeName, buffer, sizeof buffer);
    if (n < 0) return errno == ERANGE ? EINVAL : errno == ENOTSUP || errno == ENODATA ? 0 : errno;
    std::uint32_t parsed = 0;
    if (!VNParseFlagsAttribute(std::string(buffer, static_cast<size_t>(n)), &parsed)) return EINVAL;
    *value = parsed;
    return 0;
  }

  static VNFsStatus getFlagsByPath(VNAtPath item, std::uint32_t* flags) {
    struct statx stx {};
    if (int code = VNStatxItem(item, STATX_TYPE, &stx)) return VNFsStatus::failure(code, "read status of", item.path);
    // A file system that does not report its inode flags through statx is
    // asked the slow way.
    if (!VNStatxReportsInodeFlags(stx)) {
      Item state;
      if (VNFsStatus status = load(item, &state); !status.ok()) return status;
      unsigned inode = 0;
      if (int code = readInodeFlags(state.fd.get(), &inode); code && !isUnsupported(code))
        return VNFsStatus::failure(code, "read flags of", item.path);
      *flags = VNMergedFlagsWord(true, inode, state.attribute);
      return {};
    }
    std::optional<std::uint32_t> attribute;
    if (int code = readAttributeOf(item, &attribute))
      return VNFsStatus::failure(code, "read flags attribute of", item.path);
    *flags = *VNFlagsWordFromStatx(stx, attribute);
    return {};
  }

  // An item held O_PATH, its kind, and its flags attribute.
  struct Item {
    VNUniqueFd fd;
    mode_t mode = 0;
    std::optional<std::uint32_t> attribute;
  };

  static VNFsStatus load(VNAtPath item, Item* state) {
    if (int code = VNOpenItem(item, /*follow=*/false, &state->fd))
      return VNFsStatus::failure(code, "open", item.path);
    struct stat st {};
    if (::fstat(state->fd.get(), &st) != 0) return VNFsStatus::failure(errno, "read status of", item.path);
    state->mode = st.st_mode;
    return readAttribute(state->fd.get(), item, &state->attribute);
  }

  static int readInodeFlags(int pathFd, unsigned* flags) {
    VNUniqueFd io;
    if (int code = VNReopenItem(pathFd, O_RDONLY | O_NONBLOCK, &io)) return code;
    return VNGetInodeFlags(io.get(), flags);
  }

  static VNFsStatus readAttribute(int fd, VNAtPath item, std::optional<std::uint32_t>* value) {
    int code = VNReadFlagsAttribute({fd, true}, value);
    return code ? VNFsStatus::failure(code, "read flags attribute of", item.path) : VNFsStatus{};
  }

  static VNFsStatus writeAttribute(int fd, VNAtPath item, std::optional<std::uint32_t> value) {
    int code = value ? VNSetXattr({fd, true}, VNFileFlagsAttributeName, VNFormat("0x%08" PRIx32, *value))
                     : VNRemoveXattr({fd, true}, VNFileFlagsAttributeName);
    return code ? VNFsStatus::failure(code, "write flags attribute of", item.path) : VNFsStatus{};
  }
};

}  // namespace

std::shared_ptr<VNFileFlags> VNFileFlags::makeDefault() { return std::make_shared<LinuxFileFlags>(); }
