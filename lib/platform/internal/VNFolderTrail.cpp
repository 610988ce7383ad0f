#include "platform/internal/VNFolderTrail.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

int VNReopenParent(int childFd, int flags, dev_t device, ino_t inode, VNUniqueFd* out) {
  if (childFd < 0) return ESTALE;
  VNUniqueFd fd(::openat(childFd, "..", flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat st {};
  if (!fd || ::fstat(fd.get(), &st) != 0) return errno;
  if (st.st_dev != device || st.st_ino != inode) return ESTALE;
  *out = std::move(fd);
  return 0;
}

void VNFolderTrail::push(VNUniqueFd fd, dev_t device, ino_t inode) {
  folders_.push_back({std::move(fd), device, inode});
  if (folders_.size() > kOpenFolders) folders_[folders_.size() - 1 - kOpenFolders].fd.reset();
}

int VNFolderTrail::pop() {
  Folder child = std::move(folders_.back());
  folders_.pop_back();
  if (folders_.empty() || folders_.back().fd) return 0;
  Folder& parent = folders_.back();
  return VNReopenParent(child.fd.get(), flags_, parent.device, parent.inode, &parent.fd);
}

bool VNFolderTrail::contains(dev_t device, ino_t inode) const {
  return std::any_of(folders_.begin(), folders_.end(),
                     [&](const Folder& folder) { return folder.device == device && folder.inode == inode; });
}
