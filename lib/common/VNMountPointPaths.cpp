// Paths relative to the mount point of the volume that holds an item.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "common/VNStringUtilities.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNMountTable.h"
#include "platform/VNPlatformService.h"

namespace {

// The mount path is looked for in this many leading bytes of the item's path.
constexpr size_t kSearchedBytes = 1024;

// The path of the item at `path` on its own volume, without following a final
// symbolic link. O_PATH opens without reading, so a FIFO cannot block and a
// device sees no open; a final link is refused as O_NOFOLLOW would refuse it.
std::optional<std::string> volumePathOf(const std::string& path, VNMountTable& table) {
  VNUniqueFd fd(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat item {};
  if (!fd || ::fstat(fd.get(), &item) != 0 || S_ISLNK(item.st_mode)) return std::nullopt;
  return table.volumePathOfDescriptor(fd.get());
}

}  // namespace

namespace VNUtilities {

std::optional<std::string> VN_pathByRemovingMountPoint(std::string_view path) {
  if (path.empty() || path.find('\0') != std::string_view::npos) return std::nullopt;
  auto table = VNPlatformSlot<VNMountTable>::get();
  auto realPath = volumePathOf(std::string(path), *table);
  if (!realPath) return std::nullopt;
  auto mountPoint = table->mountPointOfPath(*realPath);
  if (!mountPoint) return std::nullopt;
  auto mountPath = volumePathOf(*mountPoint, *table);
  if (!mountPath) return std::nullopt;
  size_t searched = std::min(realPath->size(), kSearchedBytes);
  if (mountPath->size() > searched || realPath->compare(0, mountPath->size(), *mountPath) != 0)
    return std::nullopt;
  // The mount path is a prefix of the real path, so the leading run of its
  // characters is the mount path itself; cutting exactly that keeps the
  // separator after it ("/srv/data/Users/a" on "/srv/data" gives "/Users/a").
  return realPath->substr(mountPath->size());
}

}  // namespace VNUtilities
