#pragma once

#include "systemview/VNSystem_FileManager_DiskBased.h"

// The view of a system that lies whole on one volume: every target path is
// found below the root.
class VN_EXPORT VNSystem_FileManager_Traditional : public VNSystem_FileManager_DiskBased {
 public:
  // A view without a root (not ready); views are normally made with initAtRoot.
  VNSystem_FileManager_Traditional() = default;
  static std::unique_ptr<VNSystem_FileManager_Traditional> initAtRoot(std::optional<VNFileURL> root);

  // The root joined with the target path. The existence test follows a final
  // symbolic link, so a dangling link counts as missing.
  std::optional<VNFileURL> pathToRemoteFile(const VNFileURL& targetPath, bool* exists, bool makeAvailable) override;
  std::optional<VNPathValues> resourceValuesForKeys(const std::vector<std::string>& keys,
                                                    const std::vector<VNFileURL>& paths, VNError* error) override;
  std::optional<VNPathValues> bundleInformationAtPaths(const std::vector<VNFileURL>& paths) override;
  const char* className() const override { return "VNSystem_FileManager_Traditional"; }
};
