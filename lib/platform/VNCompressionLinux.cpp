// Compression through the compressed inode flag.
#include <linux/fs.h>

#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "platform/VNCompression.h"
#include "platform/internal/VNFlagsWord.h"
#include "platform/internal/VNItemFd.h"

namespace {

// A file system without inode flags at all, or without this one, has no
// compression for us.
int asUnsupported(int code) { return code == ENOTTY || code == EOPNOTSUPP ? ENOTSUP : code; }

class LinuxCompression final : public VNCompression {
 public:
  VNFsStatus isCompressed(VNAtPath item, bool* compressed) override {
    // statx answers without opening the item where the file system reports
    // its inode flags there.
    struct statx status {};
    if (int code = VNStatxItem(item, STATX_TYPE, &status)) return VNFsStatus::failure(code, "read status of", item.path);
    if (std::optional<bool> answer = VNStatxCompressed(status)) {
      *compressed = *answer;
      return {};
    }
    VNUniqueFd fd;
    unsigned flags = 0;
    if (VNFsStatus status = openAndRead(item, &fd, &flags); !status.ok()) return status;
    *compressed = flags & FS_COMPR_FL;
    return {};
  }

  bool fileSystemMayCompress(VNAtPath item) override {
    struct statx status {};
    if (VNStatxItem(item, STATX_TYPE, &status) != 0) return true;
    if (!VNHasInodeFlags(status.stx_mode) || (status.stx_attributes_mask & STATX_ATTR_COMPRESSED)) return true;
    // Reporting the other inode flags but not this one: no compression.
    return !VNStatxReportsInodeFlags(status);
  }

  VNFsStatus setCompressed(VNAtPath item, bool compressed) override {
    VNUniqueFd fd;
    unsigned flags = 0;
    if (VNFsStatus status = openAndRead(item, &fd, &flags); !status.ok()) return status;
    unsigned wanted = compressed ? flags | FS_COMPR_FL : flags & ~FS_COMPR_FL;
    if (wanted == flags) return {};
    if (int code = VNSetInodeFlags(fd.get(), wanted))
      return VNFsStatus::failure(asUnsupported(code), "set compression of", item.path);
    // Some file systems take the flag without a word and do nothing with it.
    unsigned after = 0;
    if (int code = VNGetInodeFlags(fd.get(), &after))
      return VNFsStatus::failure(code, "read flags of", item.path);
    if ((after & FS_COMPR_FL) != (wanted & FS_COMPR_FL))
      return VNFsStatus::failure(ENOTSUP, "set compression of", item.path);
    return {};
  }

 private:
  // Opens a regular file or directory for the flag ioctls; other kinds have
  // no inode flags to reach.
  static VNFsStatus openAndRead(VNAtPath item, VNUniqueFd* fd, unsigned* flags) {
    VNUniqueFd pathFd;
    if (int code = VNOpenItem(item, /*follow=*/false, &pathFd))
      return VNFsStatus::failure(code, "open", item.path);
    struct stat st {};
    if (::fstat(pathFd.get(), &st) != 0) return VNFsStatus::failure(errno, "read status of", item.path);
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode))
      return VNFsStatus::failure(ENOTSUP, "read flags of", item.path);
    if (int code = VNReopenItem(pathFd.get(), O_RDONLY | O_NONBLOCK, fd))
      return VNFsStatus::failure(code, "open", item.path);
    if (int code = VNGetInodeFlags(fd->get(), flags))
      return VNFsStatus::failure(asUnsupported(code), "read flags of", item.path);
    return {};
  }
};

}  // namespace

std::shared_ptr<VNCompression> VNCompression::makeDefault() {
  return std::make_shared<LinuxCompression>();
}
