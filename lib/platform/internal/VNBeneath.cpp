#include "platform/internal/VNBeneath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cerrno>
#include <cstdint>

#include "foundation/VNUniqueFd.h"

namespace {

int openBeneath(int folderFd, std::string_view relative, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  const std::string path = relative.empty() ? std::string(".") : std::string(relative);
  return static_cast<int>(::syscall(SYS_openat2, folderFd, path.c_str(), &how, sizeof how));
}

}  // namespace

// A path longer than the kernel takes at once is opened a run of whole
// components at a time, each run from the folder the one before reached.
int VNOpenBeneath(int folderFd, std::string_view relative, int flags) {
  VNUniqueFd held;
  int at = folderFd;
  while (relative.size() >= PATH_MAX) {
    const std::size_t cut = relative.rfind('/', PATH_MAX - 1);
    if (cut == std::string_view::npos || cut == 0) {
      errno = ENAMETOOLONG;
      return -1;
    }
    VNUniqueFd next(openBeneath(at, relative.substr(0, cut), O_PATH | O_DIRECTORY));
    if (!next) return -1;
    held = std::move(next);
    at = held.get();
    relative.remove_prefix(cut + 1);
  }
  return openBeneath(at, relative, flags);
}

int VNOpenFolderBeneath(int folderFd, const std::string& relative) {
  return VNOpenBeneath(folderFd, relative, O_RDONLY | O_DIRECTORY);
}

int VNMoveFileBeneath(int fromFd, const std::string& fromFolder, int toFd, const std::string& toFolder,
                      const std::string& name) {
  VNUniqueFd from(VNOpenFolderBeneath(fromFd, fromFolder));
  if (!from) return errno;
  VNUniqueFd to(VNOpenFolderBeneath(toFd, toFolder));
  if (!to) return errno;
  if (::renameat(from.get(), name.c_str(), to.get(), name.c_str()) != 0) return errno;
  return ::fsync(to.get()) == 0 ? 0 : errno;
}

int VNRemoveFileBeneath(int fd, const std::string& folder, const std::string& name) {
  VNUniqueFd held(VNOpenFolderBeneath(fd, folder));
  if (!held) return errno == ENOENT ? 0 : errno;
  if (::unlinkat(held.get(), name.c_str(), 0) == 0 || errno == ENOENT) return 0;
  return errno;
}

namespace {

// The folder holding the last component of `relative`, opened beneath
// `fd`, and that component.
int openParent(int fd, const std::string& relative, VNUniqueFd* parent, std::string* name) {
  const auto slash = relative.rfind('/');
  *name = slash == std::string::npos ? relative : relative.substr(slash + 1);
  parent->reset(VNOpenFolderBeneath(fd, slash == std::string::npos ? std::string() : relative.substr(0, slash)));
  return *parent ? 0 : errno;
}

}  // namespace

int VNMakeFolderBeneath(int fd, const std::string& relative, unsigned mode) {
  VNUniqueFd parent;
  std::string name;
  if (int err = openParent(fd, relative, &parent, &name)) return err;
  return ::mkdirat(parent.get(), name.c_str(), mode) == 0 ? 0 : errno;
}

int VNRemoveEmptyFolderBeneath(int fd, const std::string& relative) {
  VNUniqueFd parent;
  std::string name;
  if (int err = openParent(fd, relative, &parent, &name)) return err;
  return ::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

bool VNEntryExistsBeneath(int fd, const std::string& folder, const std::string& name) {
  VNUniqueFd held(VNOpenFolderBeneath(fd, folder));
  struct stat status {};
  return held && ::fstatat(held.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}
