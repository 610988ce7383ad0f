// The base of every target-system view: the template receipt and the
// checksum test, and the queries only concrete views answer.
#include "systemview/VNSystem_FileManager_Kestos.h"

#include "common/VNLogging.h"
#include "datatemplate/VNBomStore.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "foundation/VNFormat.h"

namespace {

template <class... Args>
void logLine(VNLogType type, const char* function, std::string_view format, const Args&... args) {
  VNLogging::logType(type, function, __LINE__, VNFormat(format, args...));
}

[[noreturn]] void mustImplement(const char* method) {
  throw VNSystem_FileManager_Kestos_Exception(
      VNFormat("Concrete subclasses must implement %s", VNFormat("-[VNSystem_FileManager_Kestos %s]", method)));
}

VNFileURL receiptFileURL(const char* extension) {
  VNFileURL folder = VNFileURL::fileURLWithPath(std::string("/") + VNDataTemplateLocations::kReceiptsFolder,
                                                /*isDirectory=*/true);
  return folder.URLByAppendingPathComponent(std::string(VNUDTTemplateReceiptIdentifier) + extension,
                                            /*isDirectory=*/false);
}

}  // namespace

bool VNFileURLOrder::operator()(const VNFileURL& a, const VNFileURL& b) const {
  if (a.path() != b.path()) return a.path() < b.path();
  return a.hasDirectoryPath() < b.hasDirectoryPath();
}

const VNTemplateReceipt* VNSystem_FileManager_Kestos::templateReceipt() {
  if (templateReceipt_) return templateReceipt_.get();
  VNFileURL plistURL = receiptFileURL(".plist");
  VNFileURL bomURL = receiptFileURL(".bom");
  if (!pathToRemoteFile(plistURL, nullptr, true)) {
    logLine(VNLogTypeError, __func__, "[%@:%p]: The template receipt plist could not be fetched for: %@",
            className(), static_cast<const void*>(this), plistURL);
    return nullptr;
  }
  std::optional<VNFileURL> mappedBOM = pathToRemoteFile(bomURL, nullptr, true);
  if (!mappedBOM) {
    logLine(VNLogTypeError, __func__, "[%@:%p]: The template receipt bom could not be fetched for: %@", className(),
            static_cast<const void*>(this), bomURL);
    return nullptr;
  }
  templateReceipt_ = VNTemplateReceipt::receiptWithBOMPath(mappedBOM->path());
  if (!templateReceipt_) {
    logLine(VNLogTypeError, __func__, "[%@:%p]: CRReceipt could not be constructed from BOM at path: %@",
            className(), static_cast<const void*>(this), *mappedBOM);
    return nullptr;
  }
  logLine(VNLogTypeDefault, __func__, "[%p:%p]: Template receipt has been loaded from %@",
          static_cast<const void*>(className()), static_cast<const void*>(this), mappedBOM->path());
  return templateReceipt_.get();
}

bool VNSystem_FileManager_Kestos::matchesFileInDataTemplateWithPath(const std::string& path,
                                                                    const std::string& relativeTemplatePath) {
  const VNTemplateReceipt* receipt = templateReceipt();
  if (!receipt) return false;
  std::optional<VNValue> attributes = receipt->attributesForRelativePath(relativeTemplatePath);
  const VNValue* recorded = attributes ? attributes->find("_bom_checksum") : nullptr;
  std::optional<std::int64_t> expected = recorded ? recorded->asInteger() : std::nullopt;
  if (!expected) return false;
  std::uint32_t checksum = 0;
  std::uint64_t length = 0;
  if (bom_crc32_for_file(path.c_str(), &checksum, &length) != 0) {
    logLine(VNLogTypeError, __func__, "Unable to compute checksum for %@", path);
    return false;
  }
  if (static_cast<std::uint64_t>(checksum) != static_cast<std::uint64_t>(*expected)) return false;
  logLine(VNLogTypeDefault, __func__, "Skipping %@ (template checksum matches that of the previous OS)",
          relativeTemplatePath);
  return true;
}

void VNSystem_FileManager_Kestos::cleanup() { templateReceipt_.reset(); }

bool VNSystem_FileManager_Kestos::activate() { mustImplement("activate"); }

std::optional<VNFileURL> VNSystem_FileManager_Kestos::pathToRemoteFile(const VNFileURL&, bool*, bool) {
  mustImplement("pathToRemoteFile:exists:makeAvailable:");
}

std::optional<VNPathValues> VNSystem_FileManager_Kestos::resourceValuesForKeys(const std::vector<std::string>&,
                                                                               const std::vector<VNFileURL>&,
                                                                               VNError*) {
  mustImplement("resourceValuesForKeys:onPaths:error:");
}

std::optional<VNPathValues> VNSystem_FileManager_Kestos::bundleInformationAtPaths(const std::vector<VNFileURL>&) {
  mustImplement("bundleInformationAtPaths:");
}
