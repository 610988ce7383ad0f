// Target systems reached through a root folder on a mounted volume.
#include "systemview/VNSystem_FileManager_DiskBased.h"

#include "bundles/VNBundleInformation.h"
#include "common/VNLogging.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "foundation/VNFormat.h"
#include "platform/VNPlatformService.h"
#include "platform/VNResourceValues.h"
#include "systemview/VNSystem_FileManager_ROSV.h"
#include "systemview/VNSystem_FileManager_Traditional.h"
#include "systemview/internal/VNTargetPaths.h"

std::unique_ptr<VNSystem_FileManager_DiskBased> VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(
    const VNFileURL& root) {
  if (VNSystem_FileManager_ROSV::isRootROSV(root)) return VNSystem_FileManager_ROSV::initAtRoot(root);
  return VNSystem_FileManager_Traditional::initAtRoot(root);
}

std::unique_ptr<VNSystem_FileManager_DiskBased> VNSystem_FileManager_DiskBased::initAtRoot(
    std::optional<VNFileURL> root) {
  std::unique_ptr<VNSystem_FileManager_DiskBased> view(new VNSystem_FileManager_DiskBased());
  view->storeInitialRoot(std::move(root));
  return view;
}

void VNSystem_FileManager_DiskBased::storeInitialRoot(std::optional<VNFileURL> root) {
  if (!root || root->empty()) {
    VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                       VNFormat("Filemanager: %p Returning from initAtRoot with nil root passed!",
                                static_cast<const void*>(this)));
  }
  setRoot(std::move(root));
}

std::optional<VNFileURL> VNSystem_FileManager_DiskBased::root() const {
  std::shared_ptr<const VNFileURL> root = root_.load();
  if (!root) return std::nullopt;
  return *root;
}

void VNSystem_FileManager_DiskBased::setRoot(std::optional<VNFileURL> root) {
  if (root && root->empty()) root.reset();
  root_.store(root ? std::make_shared<const VNFileURL>(std::move(*root)) : nullptr);
}

std::optional<std::string> VNSystem_FileManager_DiskBased::versionFileString(const char* key) {
  VNFileURL versionFile =
      VNFileURL::fileURLWithPath(std::string("/") + VNDataTemplateLocations::kSystemVersionFile, false);
  std::optional<VNFileURL> mapped = pathToRemoteFile(versionFile, nullptr, true);
  if (!mapped) return std::nullopt;
  std::optional<VNValue> plist = VNValue::fromPropertyListFile(mapped->path());
  const std::string* value = plist ? plist->findString(key) : nullptr;
  if (!value) return std::nullopt;
  return *value;
}

std::optional<std::string> VNSystem_FileManager_DiskBased::productVersion() {
  return versionFileString("ProductVersion");
}

std::optional<std::string> VNSystem_FileManager_DiskBased::buildVersion() {
  return versionFileString("ProductBuildVersion");
}

bool VNSystem_FileManager_DiskBased::isFileSystemReady() { return root().has_value(); }

std::optional<VNFileURL> VNSystem_FileManager_DiskBased::slash() { return root(); }

std::optional<VNFileURL> VNSystem_FileManager_DiskBased::userContentRoot() { return slash(); }

std::optional<VNFileURL> VNSystem_FileManager_DiskBased::userHomeRoot() {
  std::optional<VNFileURL> root = slash();
  if (!root) return std::nullopt;
  return root->URLByAppendingPathComponent("Users", /*isDirectory=*/true);
}

bool VNSystem_FileManager_DiskBased::activate() { return true; }

void VNSystem_FileManager_DiskBased::cleanup() { VNSystem_FileManager_Kestos::cleanup(); }

std::optional<VNFileURL> VNSystem_FileManager_DiskBased::pathToRemoteFile(const VNFileURL&, bool*, bool) {
  return std::nullopt;
}

std::optional<VNPathValues> VNSystem_FileManager_DiskBased::resourceValuesForKeys(const std::vector<std::string>&,
                                                                                  const std::vector<VNFileURL>&,
                                                                                  VNError*) {
  return std::nullopt;
}

std::optional<VNPathValues> VNSystem_FileManager_DiskBased::bundleInformationAtPaths(
    const std::vector<VNFileURL>&) {
  return std::nullopt;
}

VNPathValues VNSystem_FileManager_DiskBased::valuesBelowRoot(
    const std::vector<VNFileURL>& paths,
    const std::function<bool(const VNFileURL&, VNValue&)>& answer) const {
  VNPathValues values;
  std::optional<VNFileURL> base = root();
  for (const VNFileURL& path : paths) {
    std::optional<VNFileURL> mapped = base ? VNTargetPathBelow(*base, path) : std::nullopt;
    VNValue value;
    if (mapped && answer(*mapped, value))
      values.insert_or_assign(path, std::move(value));
    else
      values.erase(path);
  }
  return values;
}

VNPathValues VNSystem_FileManager_DiskBased::resourceValuesBelowRoot(const std::vector<std::string>& keys,
                                                                     const std::vector<VNFileURL>& paths) const {
  auto service = VNPlatformSlot<VNResourceValues>::get();
  return valuesBelowRoot(paths, [&](const VNFileURL& mapped, VNValue& answer) {
    std::optional<VNValue::Dictionary> values = service->valuesForKeys(mapped, keys);
    if (values) answer = VNValue(std::move(*values));
    return values.has_value();
  });
}

VNPathValues VNSystem_FileManager_DiskBased::bundleInformationBelowRoot(const std::vector<VNFileURL>& paths) const {
  VNPathValues values;
  std::optional<VNFileURL> base = root();
  for (const VNFileURL& path : paths) {
    std::optional<VNFileURL> mapped = base ? VNTargetPathBelow(*base, path) : std::nullopt;
    values.insert_or_assign(path, mapped ? VNUtilities::VN_bundleInformationAtPath(*mapped) : VNValue::dictionary());
  }
  return values;
}
