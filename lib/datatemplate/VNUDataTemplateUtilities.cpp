// Installing a data template onto a data volume: copy into a temporary
// folder on the volume, shove it into place, then force the attributes of
// the users' folder.
#include "datatemplate/VNUDataTemplateUtilities.h"

#include "common/VNLogging.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNAttributeForcing.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "datatemplate/internal/VNInstallReceipts.h"
#include "foundation/VNUniqueFd.h"
#include "foundation/VNFormat.h"
#include "platform/VNPlatformService.h"
#include "platform/VNRemoveTree.h"
#include "platform/VNShove.h"
#include "platform/VNVolumeLock.h"
#include "platform/internal/VNBeneath.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

namespace {

constexpr const char* kFunction = "+[VNUDataTemplateUtilities copyDataTemplateWithSystemVolumePath:dataVolumePath:instantiateTetherlinks:progressBlock:withError:]";
constexpr std::uint32_t kShoveOptions = VNShoveMergeFolders | VNShoveReplaceItems;  // 0x30

template <class... Args>
void logLine(VNLogType type, int line, std::string_view format, const Args&... args) {
  VNLogging::logType(type, kFunction, line, VNFormat(format, args...));
}

VNError templateError(std::int64_t code, std::shared_ptr<const VNError> underlying = nullptr) {
  return VNError(VNUDataTemplateErrorDomain, code, {}, std::move(underlying));
}

bool fail(VNError* error, VNError value) {
  VNSetError(error, std::move(value));
  return false;
}

std::shared_ptr<const VNError> shared(VNError error) {
  return std::make_shared<const VNError>(std::move(error));
}

// A failed step of the installation: which step, on which path, and why (the
// underlying error), so that the code is never all a caller can show.
// `what` is a format with one "%@" for the path.
VNError stepError(std::int64_t code, std::string_view what, const std::string& path, VNError underlying) {
  VNError failure = templateError(code, shared(std::move(underlying)));
  failure.setUserInfoValue(VNLocalizedDescriptionKey, VNFormat(what, path));
  failure.setUserInfoValue(VNFilePathErrorKey, path);
  return failure;
}

// The copier's messages go to the library's log unchanged.
void sendLogToLibrary(VNUDataTemplateCopier& copier) {
  copier.setLogHandler([](VNUDataTemplateCopier&, const std::string& message) {
    logLine(VNLogTypeDefault, __LINE__, "%@", message);
  });
}

// Its progress, the items finished so far, goes to the caller's block.
std::shared_ptr<VNUDataTemplateCopier> makeCopier(const VNFileURL& systemVolume,
                                                  VNUDataTemplateUtilities::ProgressBlock progress) {
  auto copier = VNUDataTemplateCopier::initWithSystemURL(systemVolume);
  sendLogToLibrary(*copier);
  copier->setProgressHandler(
      [progress = std::move(progress)](VNUDataTemplateCopier&, std::uint64_t items, std::uint64_t) {
        if (progress) progress(items);
      });
  return copier;
}

// The temporary folder holds only what an earlier run laid down, so the
// flags the template gave its items must not keep it from going.
bool removeTemporaryFolder(const VNFileURL& folder, VNError* error) {
  VNError underlying;
  if (VNRemoveTree(folder.path(), &underlying, VNRemoveLocked::Lift) || underlying.isPOSIX(ENOENT)) return true;
  return fail(error, std::move(underlying));
}

bool createTemporaryFolder(int dataFd, const VNFileURL& folder, VNError* error) {
  const int err = VNMakeFolderBeneath(dataFd, VNDataTemplateLocations::kTemporaryFolder, 0777);
  if (err == 0) return true;
  return fail(error, stepError(VNUDataTemplateErrorCreateTemporaryFolder, "Could not create the temporary folder %@",
                               folder.path(), VNError::posix(err, folder.path(), "create folder")));
}

// Moves the copy onto the data volume; what it replaces is kept in
// `keepIn`, a folder relative to the data volume.
bool shoveIntoPlace(const VNFileURL& from, const VNFileURL& to, const std::string& keepIn, VNError* error) {
  auto shove = VNPlatformSlot<VNShove>::get();
  logLine(VNLogTypeDefault, __LINE__, "Shoving %@ -> %@", from.path(), to.path());
  std::string lastError;
  const VNShoveRequest request{from.path(), to.path(), kShoveOptions, keepIn};
  int result = shove->shove(request, [&](int level, const std::string& message) {
    if (level == VNShoveLogError) lastError = message;
    logLine(level == VNShoveLogError ? VNLogTypeFault : VNLogTypeDefault, __LINE__, "Shove: %@", message);
  });
  if (result == 0) return true;
  // The shove says which item stopped it only in its log; keep that as the cause.
  VNError cause = VNError::posix(result, to.path(), "move the template into place");
  if (!lastError.empty()) cause.setUserInfoValue(VNLocalizedDescriptionKey, lastError);
  return fail(error, stepError(VNUDataTemplateErrorShove, "Could not move the template's copy in %@ onto the data volume",
                               from.path(), std::move(cause)));
}

bool isWithin(const std::string& inner, const std::string& outer) {
  if (outer == "/") return true;
  return inner == outer || (inner.size() > outer.size() && inner.compare(0, outer.size(), outer) == 0 &&
                            inner[outer.size()] == '/');
}

// The data volume must be neither the system volume, nor inside the template
// it receives (the copy would copy itself), nor hold the template.
bool checkVolumesApart(const VNFileURL& system, const VNFileURL& dataTemplate, const VNFileURL& data,
                       VNError* error) {
  std::string systemPath = VNResolvedPath(system.path()), templatePath = VNResolvedPath(dataTemplate.path());
  std::string dataPath = VNResolvedPath(data.path());
  if (dataPath != systemPath && !isWithin(dataPath, templatePath) && !isWithin(templatePath, dataPath)) return true;
  VNError overlap = templateError(VNUDataTemplateErrorVolumesOverlap);
  overlap.setUserInfoValue(VNLocalizedDescriptionKey,
                           VNFormat("The data volume %@ overlaps the system volume %@ or its data template %@",
                                    dataPath, systemPath, templatePath));
  overlap.setUserInfoValue(VNFilePathErrorKey, dataPath);
  return fail(error, std::move(overlap));
}

std::string at(const VNFileURL& volume, const char* relative) {
  return volume.URLByAppendingPathComponent(relative, /*isDirectory=*/true).path();
}

// What an earlier installation left: its temporary folder, the receipts it
// set aside, and the receipts it placed (a rerun may not finish either).
bool clearEarlierRun(int dataFd, const VNFileURL& data, VNError* error) {
  for (const char* leftover : {VNDataTemplateLocations::kTemporaryFolder, VNDataTemplateLocations::kHeldReceipts}) {
    const VNFileURL folder = data.URLByAppendingPathComponent(leftover, true);
    VNError removal;
    if (!removeTemporaryFolder(folder, &removal))
      return fail(error, stepError(VNUDataTemplateErrorRemoveTemporaryFolder,
                                   "Could not remove the temporary folder %@ an earlier installation left",
                                   folder.path(), std::move(removal)));
  }
  if (int err = VNRemovePlacedReceipts(dataFd)) {
    const std::string receipts = at(data, VNDataTemplateLocations::kReceiptsFolder);
    return fail(error, stepError(VNUDataTemplateErrorRemoveTemporaryFolder,
                                 "Could not remove the receipts of an earlier installation in %@", receipts,
                                 VNError::posix(err, receipts, "remove receipt")));
  }
  return true;
}

// Sets the receipts aside, shoves the copy into place keeping whatever it
// replaces, and removes the temporary folder.
bool moveOntoVolume(int dataFd, const VNFileURL& temporary, const VNFileURL& data, VNError* error) {
  if (int err = VNHoldReceipts(dataFd)) {
    const std::string held = at(data, VNDataTemplateLocations::kHeldReceipts);
    return fail(error, stepError(VNUDataTemplateErrorShove, "Could not set the receipts aside in %@", held,
                                 VNError::posix(err, held, "move the receipts aside")));
  }
  std::string keepIn;
  if (int err = VNMakeReplacedItemsFolder(dataFd, &keepIn)) {
    const std::string kept = at(data, VNDataTemplateLocations::kReplacedItems);
    return fail(error, stepError(VNUDataTemplateErrorShove, "Could not make a folder for replaced items in %@", kept,
                                 VNError::posix(err, kept, "create folder")));
  }
  const bool shoved = shoveIntoPlace(temporary, data, keepIn, error);
  VNDropReplacedItemsFolderIfEmpty(dataFd, keepIn);
  if (!shoved) return false;
  VNError removal;
  if (!removeTemporaryFolder(temporary, &removal))
    logLine(VNLogTypeFault, __LINE__, "Unable to clean up Template temp directory: %@ (%@)", temporary, removal);
  return true;
}

std::unique_ptr<VNVolumeLock> lockVolume(const VNFileURL& data, VNError* error) {
  VNError underlying;
  std::optional<long> holder;
  auto lock = VNVolumeLock::acquire(data.path(), VNDataTemplateLocations::kInstallationLock, &underlying, &holder);
  if (lock) return lock;
  if (!underlying.isPOSIX(EBUSY)) {
    fail(error, stepError(VNUDataTemplateErrorCreateTemporaryFolder, "Could not lock the data volume %@", data.path(),
                          std::move(underlying)));
    return nullptr;
  }
  VNError busy = templateError(VNUDataTemplateErrorVolumeBusy, shared(underlying));
    busy.setUserInfoValue(VNLocalizedDescriptionKey,
                          holder ? VNFormat("Another installation (process %ld) is using the data volume %@",
                                            *holder, data.path())
                                 : VNFormat("Another installation is using the data volume %@", data.path()));
  fail(error, std::move(busy));
  return nullptr;
}

}  // namespace

bool VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(
    const VNFileURL& systemVolumePath, const VNFileURL& dataVolumePath, bool,
    ProgressBlock progressBlock, VNError* error) {
  return copyDataTemplateWithCopier(*makeCopier(systemVolumePath, std::move(progressBlock)), dataVolumePath,
                                    error);
}

bool VNUDataTemplateUtilities::copyDataTemplateWithCopier(VNUDataTemplateCopier& copier,
                                                          const VNFileURL& dataVolumePath, VNError* error) {
  if (!copier.logHandler()) sendLogToLibrary(copier);
  const VNFileURL& systemVolumePath = copier.systemURL();
  if (systemVolumePath.empty() || dataVolumePath.empty()) {
    VNError missing = templateError(VNUDataTemplateErrorNoMountPoint);
    missing.setUserInfoValue(VNLocalizedDescriptionKey,
                             VNFormat("No mount point: system target (%@), data target (%@)",
                                      systemVolumePath.empty() ? nullptr : systemVolumePath.absoluteString().c_str(),
                                      dataVolumePath.empty() ? nullptr : dataVolumePath.absoluteString().c_str()));
    return fail(error, std::move(missing));
  }
  logLine(VNLogTypeDefault, __LINE__, "Data Template Source: %@", copier.dataTemplateURL());
  logLine(VNLogTypeDefault, __LINE__, "Template Destination Mountpoint: %@", dataVolumePath);

  if (!checkVolumesApart(systemVolumePath, copier.dataTemplateURL(), dataVolumePath, error)) return false;
  std::unique_ptr<VNVolumeLock> lock = lockVolume(dataVolumePath, error);
  if (!lock) return false;

  VNUniqueFd data(::open(dataVolumePath.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!data)
    return fail(error, stepError(VNUDataTemplateErrorCreateTemporaryFolder, "Could not open the data volume %@",
                                 dataVolumePath.path(), VNError::posix(errno, dataVolumePath.path(), "open folder")));
  const VNFileURL temporary =
      dataVolumePath.URLByAppendingPathComponent(VNDataTemplateLocations::kTemporaryFolder, true);
  if (!clearEarlierRun(data.get(), dataVolumePath, error)) return false;
  if (!createTemporaryFolder(data.get(), temporary, error)) return false;
  if (!copier.copyDataTemplateToURL(temporary, error)) return false;
  if (!moveOntoVolume(data.get(), temporary, dataVolumePath, error)) return false;

  VNError forcing;
  if (!_preserveAttributesFromDataTemplate(copier.dataTemplateURL(), dataVolumePath, &forcing))
    return fail(error, stepError(VNUDataTemplateErrorForceAttributes,
                                 "Could not give the template's attributes to the items below %@",
                                 dataVolumePath.path(), std::move(forcing)));
  // Last of all, so that receipts on a data volume mean a finished installation.
  if (int err = VNPlaceHeldReceipts(data.get())) {
    const std::string receipts = at(dataVolumePath, VNDataTemplateLocations::kReceiptsFolder);
    return fail(error, stepError(VNUDataTemplateErrorShove, "Could not place the receipts in %@", receipts,
                                 VNError::posix(err, receipts, "move the receipts into place")));
  }
  return true;
}

bool VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(
    const VNFileURL& systemVolumePath, const VNFileURL& dataVolumePath, bool instantiateTetherlinks,
    VNError* error) {
  return copyDataTemplateWithSystemVolumePath(systemVolumePath, dataVolumePath,
                                              instantiateTetherlinks, nullptr, error);
}

bool VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(const VNFileURL& systemVolumePath,
                                                                    const VNFileURL& dataVolumePath,
                                                                    VNError* error) {
  return copyDataTemplateWithSystemVolumePath(systemVolumePath, dataVolumePath,
                                              /*instantiateTetherlinks=*/true, nullptr, error);
}

bool VNUDataTemplateUtilities::_preserveAttributesFromDataTemplate(const VNFileURL& dataTemplate,
                                                                   const VNFileURL& dataTarget,
                                                                   VNError* error) {
  static const char* const kForcedFolders[] = {"Users"};
  VNUniqueFd target(::open(dataTarget.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!target) return fail(error, VNError::posix(errno, dataTarget.path(), "open folder"));
  for (const char* name : kForcedFolders) {
    if (!VNForceAttributesBelow(dataTemplate.URLByAppendingPathComponent(name, true).path(),
                                VNAtPath(target.get(), name),
                                dataTarget.URLByAppendingPathComponent(name, true).path(), error))
      return false;
  }
  return true;
}
