// Target systems on a pair of volumes: the answers once the root is placed.
#include "systemview/VNSystem_FileManager_ROSV.h"

#include <sys/stat.h>

#include "common/VNLogging.h"
#include "common/VNURLUtilities.h"
#include "foundation/VNFormat.h"
#include "platform/VNPlatformService.h"
#include "platform/VNStorageService.h"
#include "systemview/VNVolumePairing.h"
#include "systemview/internal/VNTargetPaths.h"

namespace {

VNStorageVolumeRef volumeOfRoot(const VNFileURL& root) {
  if (root.empty()) return nullptr;
  return VNPlatformSlot<VNStorageService>::get()->volumeForPath(root.path());
}

}  // namespace

bool VNSystem_FileManager_ROSV::isRootROSV(const VNFileURL& root) {
  VNStorageVolumeRef volume = volumeOfRoot(root);
  if (!volume || volume->diskType != VNStorage::kDiskTypeSubvolume) return false;
  return volume->volumeRole == VNStorage::kVolumeRoleSystem || volume->volumeRole == VNStorage::kVolumeRoleData;
}

std::unique_ptr<VNSystem_FileManager_ROSV> VNSystem_FileManager_ROSV::initAtRoot(const VNFileURL& root) {
  auto view = std::make_unique<VNSystem_FileManager_ROSV>();
  view->storeInitialRoot(root);
  VNStorageVolumeRef volume = volumeOfRoot(root);
  VNStorageVolumeRef systemVolume, dataVolume;
  if (volume && volume->volumeRole == VNStorage::kVolumeRoleSystem) {
    view->setPointedAtMountedROSVVolume(true);
    systemVolume = volume;
    dataVolume = getPairedVolumeWithRole(volume, VNStorage::kVolumeRoleData);
  } else if (volume && volume->volumeRole == VNStorage::kVolumeRoleData) {
    view->setPointedAtDataVolume(true);
    dataVolume = volume;
    systemVolume = getPairedVolumeWithRole(volume, VNStorage::kVolumeRoleSystem);
  } else {
    VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                       VNFormat("Filemanager: %p Returning from init unexpectedly?", static_cast<const void*>(view.get())));
    return nullptr;
  }
  if (dataVolume) view->setDataVolumeMount(dataVolume->mountPoint);
  if (systemVolume) view->setSystemVolumeMount(systemVolume->mountPoint);
  VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                     VNFormat("Filemanager: %p Returning from init at (%@) with dv: (%@) and sv: (%@)",
                              static_cast<const void*>(view.get()), root,
                              view->dataVolumeMount() ? view->dataVolumeMount()->c_str() : nullptr,
                              view->systemVolumeMount() ? view->systemVolumeMount()->c_str() : nullptr));
  return view;
}

std::optional<VNFileURL> VNSystem_FileManager_ROSV::slash() { return root(); }

std::optional<std::string> VNSystem_FileManager_ROSV::productVersion() {
  if (pointedAtDataVolume()) {
    const VNTemplateReceipt* receipt = templateReceipt();
    if (receipt && receipt->packageVersion()) return receipt->packageVersion();
  }
  return VNSystem_FileManager_DiskBased::productVersion();
}

std::optional<VNFileURL> VNSystem_FileManager_ROSV::userContentRoot() {
  if (pointedAtDataVolume()) return slash();
  if (dataVolumeMount_) return VNFileURL::fileURLWithPath(*dataVolumeMount_, /*isDirectory=*/true);
  VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                     VNFormat("FileManager: Returning NIL userContent root! %p dataVolumeMount: (%@)",
                              static_cast<const void*>(this), nullptr));
  return std::nullopt;
}

std::optional<VNFileURL> VNSystem_FileManager_ROSV::userHomeRoot() {
  std::optional<VNFileURL> root = slash();
  if (!root) return std::nullopt;
  return root->URLByAppendingPathComponent("Users", /*isDirectory=*/true);
}

std::optional<VNFileURL> VNSystem_FileManager_ROSV::pathToRemoteFile(const VNFileURL& targetPath, bool* exists, bool) {
  std::optional<VNFileURL> base;
  if (pointedAtDataVolume() || VNUtilities::VN_pathRefersToFSRoot(targetPath))
    base = userContentRoot();
  else
    base = slash();
  std::optional<VNFileURL> mapped = base ? VNTargetPathBelow(*base, targetPath) : std::nullopt;
  struct stat status;
  if (exists) *exists = mapped && ::lstat(mapped->path().c_str(), &status) == 0;
  return mapped;
}

std::optional<VNPathValues> VNSystem_FileManager_ROSV::resourceValuesForKeys(const std::vector<std::string>& keys,
                                                                            const std::vector<VNFileURL>& paths,
                                                                            VNError*) {
  return resourceValuesBelowRoot(keys, paths);
}

std::optional<VNPathValues> VNSystem_FileManager_ROSV::bundleInformationAtPaths(const std::vector<VNFileURL>& paths) {
  return bundleInformationBelowRoot(paths);
}
