#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "foundation/VNUniqueFd.h"
#include "platform/VNFirmwareVariables.h"

namespace {

bool isSafeName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// The inode flags of `fd`, with immutable cleared when it was set; `wasSet`
// says whether it was. 0 or an errno.
int liftImmutable(int fd, int& flags, bool& wasSet) {
  if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) return errno == ENOTTY ? 0 : errno;
  wasSet = flags & FS_IMMUTABLE_FL;
  if (!wasSet) return 0;
  int lifted = flags & ~FS_IMMUTABLE_FL;
  return ::ioctl(fd, FS_IOC_SETFLAGS, &lifted) == 0 ? 0 : errno;
}

class EfivarfsVariables final : public VNFirmwareVariables {
 public:
  explicit EfivarfsVariables(std::string root) : root_(std::move(root)) {}

  bool isAvailable() override { return openRoot().valid(); }

  int writeVariable(std::string_view name, std::string_view value) override {
    if (!isSafeName(name)) return EINVAL;
    VNUniqueFd dir = openRoot();
    if (!dir) return errno;
    const std::string file = std::string(name) + "-" + VNFirmwareVendorGUID;
    int flags = 0;
    bool wasImmutable = false;
    VNUniqueFd existing(::openat(dir.get(), file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (existing) {
      if (int error = liftImmutable(existing.get(), flags, wasImmutable)) return error;
    }
    const int error = writeFile(dir.get(), file, value);
    if (wasImmutable && ::ioctl(existing.get(), FS_IOC_SETFLAGS, &flags) != 0 && error == 0)
      return errno;
    return error;
  }

 private:
  VNUniqueFd openRoot() const {
    return VNUniqueFd(::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }

  // One write of the attribute word and the value: efivarfs takes a
  // variable's whole content in one write.
  static int writeFile(int dir, const std::string& file, std::string_view value) {
    VNUniqueFd fd(::openat(dir, file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd) return errno;
    std::string content(sizeof VNFirmwareVariableAttributes, '\0');
    std::memcpy(content.data(), &VNFirmwareVariableAttributes, sizeof VNFirmwareVariableAttributes);
    content.append(value);
    const ssize_t written = ::write(fd.get(), content.data(), content.size());
    if (written < 0) return errno;
    return static_cast<size_t>(written) == content.size() ? 0 : EIO;
  }

  const std::string root_;
};

}  // namespace

std::shared_ptr<VNFirmwareVariables> VNMakeFirmwareVariables(std::string root) {
  return std::make_shared<EfivarfsVariables>(std::move(root));
}

std::shared_ptr<VNFirmwareVariables> VNFirmwareVariables::makeDefault() {
  return VNMakeFirmwareVariables("/sys/firmware/efi/efivars");
}
