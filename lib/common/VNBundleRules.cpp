#include "common/VNBundleRules.h"

#include <sys/stat.h>

#include "common/VNLogging.h"
#include "common/VNStringUtilities.h"
#include "common/internal/VNPathStandardization.h"
#include "foundation/VNFormat.h"
#include "platform/VNBundleService.h"
#include "platform/VNCodeSigning.h"
#include "platform/VNPlatformService.h"
#include "platform/VNTypeService.h"

namespace {

bool fileExists(const std::string& path) {
  struct stat item {};
  return ::stat(path.c_str(), &item) == 0;
}

bool hasNameOrVersion(const VNValue& info) {
  for (const char* key : {"QFBundleName", "QFBundleVersion", "QFBundleShortVersionString"})
    if (info.find(key)) return true;
  return false;
}

bool isCommonExtension(const std::string& extension) {
  return VNUtilities::commonBundleExtensions().count(extension) > 0;
}

// The bundle rules for a directory with extension `extension` at `path`.
bool directoryIsBundle(const std::string& path, const std::string& extension) {
  if (extension == "lproj") return true;
  VNFileURL directory = VNFileURL::fileURLWithPath(path, /*isDirectory=*/true);
  if (directory.empty()) return false;
  auto info = VNPlatformSlot<VNBundleService>::get()->infoDictionary(directory);
  if (info && hasNameOrVersion(*info)) return true;
  if (fileExists(directory.path() + "/Resources/Info.plist")) return true;
  return isCommonExtension(extension);
}

}  // namespace

namespace VNUtilities {

const std::set<std::string>& commonBundleExtensions() {
  static const std::set<std::string> extensions = {
      "app",      "bundle",        "framework",     "saver",      "kext",       "lproj",
      "mailstationery", "action",  "imservice",     "prefPane",   "menu",       "fs",
      "plugin",   "workflow",      "wdgt",          "colorPicker", "monitorPanel",
      "monitorPanels", "mdimporter", "ideplugin",   "tracepack",  "reportplugin"};
  return extensions;
}

bool pathIsBundle(const VNFileURL& url) {
  auto types = VNPlatformSlot<VNTypeService>::get();
  VNTypeResourceValues values = types->resourceValues(url);
  std::string path = url.empty() ? std::string() : VNStandardizedPath(url.path());
  std::string extension = path.empty() ? std::string() : VNFileURL::fileURLWithPath(path).pathExtension();
  if (values.isPackage.value_or(false)) return true;
  if (values.typeIdentifier && types->typeConformsTo(*values.typeIdentifier, VNTypeIdentifierApplication))
    return true;
  if (values.isDirectory.value_or(false) && !extension.empty()) return directoryIsBundle(path, extension);
  return isCommonExtension(extension);
}

bool pathIsBundle(std::string_view path) {
  if (path.empty() || path.find('\0') != std::string_view::npos) return false;
  return pathIsBundle(VNFileURL::fileURLWithPath(path));
}

std::optional<bool> VN_bundleIsPlatformBinary(const VNFileURL& url) {
  auto signing = VNPlatformSlot<VNCodeSigning>::get();
  int status = 0;
  auto code = signing->createStaticCode(url, &status);
  if (!code) {
    VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                       VNFormat("Platform Binary: Could not create code from path (OSS %d): %@", status, url.path()));
    return std::nullopt;
  }
  std::optional<VNValue> information;
  status = signing->copySigningInformation(*code, &information);
  if (status != 0) {
    VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                       VNFormat("Platform Binary: Sigilread failed (OSS %d): %@", status, url.path()));
    return std::nullopt;
  }
  if (!information || !information->find(VNCodeSigningPlatformIdentifierKey)) return false;
  if (VNPlatformSlot<VNBundleService>::get()->executableArchitectures(url).empty()) return false;
  VNLogging::logType(VNLogTypeDefault, __func__, __LINE__,
                     VNFormat("Platform Binary: Found platform signature at path: %@", url.path()));
  return true;
}

}  // namespace VNUtilities
