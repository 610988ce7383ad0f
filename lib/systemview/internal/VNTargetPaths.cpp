#include "systemview/internal/VNTargetPaths.h"

#include <string>
#include <vector>

#include "common/VNURLUtilities.h"

namespace {

// `path` with ".", empty components and ".." resolved, never above "/".
std::string confinedPath(const std::string& path) {
  std::vector<std::string> kept;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string component = path.substr(start, end - start);
    if (component == "..") {
      if (!kept.empty()) kept.pop_back();
    } else if (!component.empty() && component != ".") {
      kept.push_back(std::move(component));
    }
    start = end + 1;
  }
  std::string confined;
  for (const std::string& component : kept) confined += "/" + component;
  return confined.empty() ? "/" : confined;
}

}  // namespace

std::optional<VNFileURL> VNTargetPathBelow(const VNFileURL& base, const VNFileURL& targetPath) {
  if (targetPath.empty()) return std::nullopt;
  VNFileURL relative = VNFileURL::fileURLWithPath(confinedPath(targetPath.path()), targetPath.hasDirectoryPath());
  return VNUtilities::VN_URLByAppendingRelativePath(base, relative);
}
