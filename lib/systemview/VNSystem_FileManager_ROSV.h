#pragma once

#include <atomic>

#include "systemview/VNSystem_FileManager_DiskBased.h"

// The view of a system on a pair of volumes: a read-only system volume and a
// writable data volume that holds the users' content. The root may be
// either volume's mount point; the partner is found through the storage
// service. Paths directly below "/" (such as "/Users") lie on the data
// volume, deeper ones on the system volume, unless the root is the data
// volume, where everything is looked for.
class VN_EXPORT VNSystem_FileManager_ROSV : public VNSystem_FileManager_DiskBased {
 public:
  // Whether `root` lies on a system or data volume of a pair.
  static bool isRootROSV(const VNFileURL& root);
  // A view at `root`; null (and logged) when the root lies on no volume of a
  // pair. A partner that is missing or not mounted leaves its mount null.
  static std::unique_ptr<VNSystem_FileManager_ROSV> initAtRoot(const VNFileURL& root);

  std::optional<VNFileURL> slash() override;
  std::optional<std::string> productVersion() override;
  std::optional<VNFileURL> userContentRoot() override;
  std::optional<VNFileURL> userHomeRoot() override;
  // The existence test reads the item's own attributes: a dangling link counts
  // as present.
  std::optional<VNFileURL> pathToRemoteFile(const VNFileURL& targetPath, bool* exists, bool makeAvailable) override;
  std::optional<VNPathValues> resourceValuesForKeys(const std::vector<std::string>& keys,
                                                    const std::vector<VNFileURL>& paths, VNError* error) override;
  std::optional<VNPathValues> bundleInformationAtPaths(const std::vector<VNFileURL>& paths) override;
  const char* className() const override { return "VNSystem_FileManager_ROSV"; }

  // Set once by initAtRoot; the setters serve callers that build a view by hand.
  const std::optional<std::string>& dataVolumeMount() const { return dataVolumeMount_; }
  void setDataVolumeMount(std::optional<std::string> mount) { dataVolumeMount_ = std::move(mount); }
  const std::optional<std::string>& systemVolumeMount() const { return systemVolumeMount_; }
  void setSystemVolumeMount(std::optional<std::string> mount) { systemVolumeMount_ = std::move(mount); }
  bool pointedAtDataVolume() const { return pointedAtDataVolume_; }
  void setPointedAtDataVolume(bool value) { pointedAtDataVolume_ = value; }
  bool pointedAtMountedROSVVolume() const { return pointedAtMountedROSVVolume_; }
  void setPointedAtMountedROSVVolume(bool value) { pointedAtMountedROSVVolume_ = value; }

  VNSystem_FileManager_ROSV() = default;

 private:
  std::atomic<bool> pointedAtDataVolume_{false};
  std::atomic<bool> pointedAtMountedROSVVolume_{false};
  std::optional<std::string> dataVolumeMount_;
  std::optional<std::string> systemVolumeMount_;
};
