// The type table of docs/type-identifiers.md and the device types of
// docs/device-types.md.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "platform/VNHostIdentity.h"
#include "platform/VNPlatformService.h"
#include "platform/VNTypeService.h"
#include "platform/internal/VNDeviceTypes.h"

extern "C" {
const char* const VNTypeIdentifierApplication = "org.varnel.application";
}

namespace {

struct TypeEntry {
  std::string_view identifier;
  std::string_view parent;  // empty for a root type
};

// Each type and the one it directly conforms to.
constexpr TypeEntry kTypes[] = {
    {"org.varnel.item", ""},
    {"org.varnel.directory", "org.varnel.item"},
    {"org.varnel.folder", "org.varnel.directory"},
    {"org.varnel.package", "org.varnel.directory"},
    {"org.varnel.bundle", "org.varnel.package"},
    {"org.varnel.application", "org.varnel.item"},
    {"org.varnel.application-bundle", "org.varnel.application"},
    {"org.varnel.plugin-bundle", "org.varnel.bundle"},
    {"org.varnel.framework", "org.varnel.directory"},
    {"org.varnel.data", "org.varnel.item"},
    {"org.varnel.property-list", "org.varnel.data"},
    {"org.varnel.plain-text", "org.varnel.data"},
    {"org.varnel.symlink", "org.varnel.item"},
    {"org.varnel.special-file", "org.varnel.item"},
};

struct ExtensionEntry {
  std::string_view extension;  // compared without regard to ASCII case
  bool directory;
  std::string_view identifier;
  bool package;
};

constexpr ExtensionEntry kExtensions[] = {
    {"app", true, "org.varnel.application-bundle", true},
    {"bundle", true, "org.varnel.plugin-bundle", true},
    {"plugin", true, "org.varnel.plugin-bundle", true},
    {"framework", true, "org.varnel.framework", false},
    {"plist", false, "org.varnel.property-list", false},
    {"txt", false, "org.varnel.plain-text", false},
};

bool sameIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

std::string_view parentOf(std::string_view type) {
  for (const auto& entry : kTypes)
    if (entry.identifier == type) return entry.parent;
  return {};
}

class LinuxTypeService final : public VNTypeService {
 public:
  VNTypeResourceValues resourceValues(const VNFileURL& url) override {
    struct stat item {};
    if (url.empty() || url.path().find('\0') != std::string::npos ||
        ::lstat(url.path().c_str(), &item) != 0)
      return {};
    bool directory = S_ISDIR(item.st_mode);
    VNTypeResourceValues values{false, directory, std::string()};
    if (directory || S_ISREG(item.st_mode)) {
      std::string extension = url.pathExtension();
      for (const auto& entry : kExtensions) {
        if (entry.directory == directory && sameIgnoringCase(entry.extension, extension)) {
          values.isPackage = entry.package;
          values.typeIdentifier = std::string(entry.identifier);
          return values;
        }
      }
    }
    values.typeIdentifier = directory               ? "org.varnel.folder"
                            : S_ISLNK(item.st_mode) ? "org.varnel.symlink"
                            : S_ISREG(item.st_mode) ? "org.varnel.data"
                                                    : "org.varnel.special-file";
    return values;
  }

  std::string deviceTypeIdentifier(std::optional<std::string_view> modelCode) override {
    if (modelCode) return VNDeviceTypeOfModel(*modelCode);
    return VNDeviceTypeOfChassis(VNPlatformSlot<VNHostIdentity>::get()->chassis());
  }

  std::string deviceTypeDescription(std::string_view type) override { return VNDeviceTypeDescription(type); }

  bool typeConformsTo(std::string_view type, std::string_view parent) override {
    for (std::string_view current = type; !current.empty(); current = parentOf(current))
      if (current == parent) return true;
    return false;
  }
};

}  // namespace

std::shared_ptr<VNTypeService> VNTypeService::makeDefault() { return std::make_shared<LinuxTypeService>(); }
