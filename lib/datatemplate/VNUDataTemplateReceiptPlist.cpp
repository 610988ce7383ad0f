// The receipt property list: which template was laid down, when, by which
// process and with which symlink patterns.
#include <errno.h>

#include <chrono>

#include "datatemplate/VNUDataTemplateCopier.h"

namespace {

constexpr const char* kFallbackVersion = "1.0";
constexpr const char* kFallbackBuild = "1A0";

VNValue patternArray(const std::shared_ptr<const VNUDataTemplateCopier::PatternList>& patterns) {
  VNValue::Array array;
  if (patterns) array.assign(patterns->begin(), patterns->end());
  return VNValue(std::move(array));
}

VNValue::Date now() {
  using namespace std::chrono;
  return VNValue::Date::fromUnixTime(
      duration<double>(system_clock::now().time_since_epoch()).count());
}

}  // namespace

VNValue VNUDataTemplateCopier::receiptPropertyList() {
  VNValue version = systemVersionDictionary();
  const std::string* productVersion = version.findString("ProductVersion");
  const std::string* buildVersion = version.findString("ProductBuildVersion");
  if (!productVersion || !buildVersion) log("failed to get version from SystemVersion.plist");
  std::string packageVersion = productVersion ? *productVersion : kFallbackVersion;

  VNValue information = VNValue::dictionary();
  information.set("SystemBuild", buildVersion ? *buildVersion : kFallbackBuild);
  information.set("SystemVersion", packageVersion);
  information.set("SymlinkedFilePatterns", patternArray(symlinkedFilePatterns()));
  information.set("SymlinkedDirectoryPatterns", patternArray(symlinkedDirectoryPatterns()));

  VNValue receipt = VNValue::dictionary();
  receipt.set("AdditionalInformation", std::move(information));
  receipt.set("InstallDate", now());
  receipt.set("InstallPrefixPath", "/");
  receipt.set("InstallProcessName", program_invocation_short_name);
  receipt.set("PackageGroups", VNValue(VNValue::Array{"org.varnel.FindSystemFiles.pkg-group",
                                                      "org.varnel.OSTemplate.pkg-group"}));
  receipt.set("PackageIdentifier", VNUDTTemplateReceiptIdentifier);
  receipt.set("PackageVersion", packageVersion);
  return receipt;
}

bool VNUDataTemplateCopier::reportReceiptPlist(bool written, const std::string& shownPath,
                                               const VNError& writeError, VNError* error) {
  if (written) {
    log("wrote receipt plist to %s", shownPath);
    return true;
  }
  VNSetError(error, VNError(VNUDataTemplateErrorDomain, VNUDataTemplateErrorReceiptPlist, {},
                            std::make_shared<const VNError>(writeError)));
  log("failed to write receipt plist to %s: %@", shownPath, writeError);
  return false;
}

bool VNUDataTemplateCopier::_writeDataTemplateReceiptPlistToURL(const VNFileURL& plistURL,
                                                                 VNError* error) {
  VNError writeError;
  const bool written = receiptPropertyList().writePropertyListFile(plistURL.path(), VNValue::Format::XML, &writeError);
  return reportReceiptPlist(written, plistURL.path(), writeError, error);
}
