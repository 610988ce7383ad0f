#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One subvolume of a btrfs file system as its root tree records it.
struct VNBtrfsSubvolume {
  std::uint64_t id = 0;
  std::string path;  // from the top of the file system, "/" for the top
  bool readOnly = false;
  bool isSnapshot = false;
};

// Every subvolume of the file system holding `fd`, the top first, in the
// order of their ids, read with a few searches of the root tree however many
// there are (one search per subvolume is what makes a long listing slow).
// Subvolumes deleted but not yet cleaned up are left out. Needs
// CAP_SYS_ADMIN; empty without it.
std::vector<VNBtrfsSubvolume> VNBtrfsListSubvolumes(int fd);
