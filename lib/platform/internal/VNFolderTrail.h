#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "foundation/VNUniqueFd.h"

// Opens the folder above the one `childFd` holds through its "..", with
// `flags` (O_DIRECTORY, O_NOFOLLOW and O_CLOEXEC added). It must be the
// folder of `device` and `inode` it was: one moved or swapped meanwhile
// fails with ESTALE. Returns 0 or the errno; `out` is set only on success.
[[nodiscard]] int VNReopenParent(int childFd, int flags, dev_t device, ino_t inode, VNUniqueFd* out);

// The folders from a walk's top down to the one it is in, each the parent
// of the next. Trees may be far deeper than the descriptor limit: only the
// deepest kOpenFolders keep a descriptor, and a closed folder is opened
// again through ".." of its child when the walk climbs back to it.
class VNFolderTrail {
 public:
  static constexpr std::size_t kOpenFolders = 32;

  // `flags`: how closed folders are opened again (O_RDONLY or O_PATH).
  explicit VNFolderTrail(int flags) : flags_(flags) {}

  // Adds `fd`, the folder of `device` and `inode`, below the deepest.
  void push(VNUniqueFd fd, dev_t device, ino_t inode);
  // Drops the deepest folder and opens the one above it again when it was
  // closed. Returns 0, or the errno of that reopening (ESTALE when another
  // folder is there now), the folder above then staying closed.
  [[nodiscard]] int pop();

  // The deepest folder's descriptor; -1 when it could not be opened again.
  int fd() const { return folders_.back().fd.get(); }
  std::size_t size() const { return folders_.size(); }
  bool empty() const { return folders_.empty(); }
  // Whether the folder of `device` and `inode` is on the trail.
  bool contains(dev_t device, ino_t inode) const;

 private:
  struct Folder {
    VNUniqueFd fd;
    dev_t device;
    ino_t inode;
  };
  int flags_;
  std::vector<Folder> folders_;
};

// Calls `each(name, type)` with every entry of the folder `fd` (a dirent
// d_type) but "." and "..", reading from the descriptor's offset: the start
// of a freshly opened folder. Returns 0 or the errno of a failed read.
template <class Each>
int VNForEachName(int fd, Each&& each) {
  alignas(dirent64) char buffer[32768];
  for (;;) {
    const ssize_t length = ::getdents64(fd, buffer, sizeof buffer);
    if (length < 0) return errno;
    if (length == 0) return 0;
    for (ssize_t at = 0; at < length;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
      at += entry->d_reclen;
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
      each(name, entry->d_type);
    }
  }
}
