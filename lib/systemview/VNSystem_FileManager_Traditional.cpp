// Target systems on one volume.
#include "systemview/VNSystem_FileManager_Traditional.h"

#include <sys/stat.h>

#include "systemview/internal/VNTargetPaths.h"

std::unique_ptr<VNSystem_FileManager_Traditional> VNSystem_FileManager_Traditional::initAtRoot(
    std::optional<VNFileURL> root) {
  auto view = std::make_unique<VNSystem_FileManager_Traditional>();
  view->storeInitialRoot(std::move(root));
  return view;
}

std::optional<VNFileURL> VNSystem_FileManager_Traditional::pathToRemoteFile(const VNFileURL& targetPath, bool* exists,
                                                                           bool) {
  std::optional<VNFileURL> base = root();
  std::optional<VNFileURL> mapped = base ? VNTargetPathBelow(*base, targetPath) : std::nullopt;
  struct stat status;
  if (exists) *exists = mapped && ::stat(mapped->path().c_str(), &status) == 0;
  return mapped;
}

std::optional<VNPathValues> VNSystem_FileManager_Traditional::resourceValuesForKeys(
    const std::vector<std::string>& keys, const std::vector<VNFileURL>& paths, VNError*) {
  return resourceValuesBelowRoot(keys, paths);
}

std::optional<VNPathValues> VNSystem_FileManager_Traditional::bundleInformationAtPaths(const std::vector<VNFileURL>& paths) {
  return bundleInformationBelowRoot(paths);
}
