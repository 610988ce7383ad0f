#include "support/VNExtents.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

std::vector<std::uint32_t> VNExtentFlags(const std::string& path) {
  std::vector<std::uint32_t> flags;
  int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return flags;
  constexpr unsigned kExtents = 256;
  std::vector<char> buffer(sizeof(fiemap) + kExtents * sizeof(fiemap_extent));
  auto* map = reinterpret_cast<fiemap*>(buffer.data());
  map->fm_length = FIEMAP_MAX_OFFSET;
  map->fm_flags = FIEMAP_FLAG_SYNC;
  map->fm_extent_count = kExtents;
  if (::ioctl(fd, FS_IOC_FIEMAP, map) == 0)
    for (unsigned i = 0; i < map->fm_mapped_extents; ++i) flags.push_back(map->fm_extents[i].fe_flags);
  ::close(fd);
  return flags;
}

bool VNAllExtentsShared(const std::string& path) {
  std::vector<std::uint32_t> flags = VNExtentFlags(path);
  return !flags.empty() &&
         std::all_of(flags.begin(), flags.end(), [](std::uint32_t f) { return (f & FIEMAP_EXTENT_SHARED) != 0; });
}
