#include "support/VNDescribeAtPath.h"

#include <unistd.h>

#include <climits>

std::string VNDescribeAtPath(VNAtPath item) {
  const std::string path = item.path;
  if (item.dirfd == AT_FDCWD || (!path.empty() && path[0] == '/')) return path;
  char buffer[PATH_MAX];
  ssize_t n = ::readlink(("/proc/self/fd/" + std::to_string(item.dirfd)).c_str(), buffer, sizeof buffer);
  std::string folder = n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
  return path.empty() ? folder : folder + "/" + path;
}
