// What a set-up tool asks of a pair of volumes: the system's version, the
// tetherlinks joining them, and whether the data template still belongs to
// the system.
#include <string_view>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "datatemplate/VNUVersion.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "platform/VNPlatformService.h"
#include "platform/VNTetherlinkResolver.h"

namespace {

// The property list at `relative` below `root` when it is a dictionary; an
// empty dictionary otherwise.
VNValue::Dictionary dictionaryAt(const VNFileURL& root, const std::string& relative) {
  std::optional<VNValue> value = VNValue::fromPropertyListFile(root.URLByAppendingPathComponent(relative).path());
  if (value && value->asDictionary()) return std::move(*value->asDictionary());
  return {};
}

const std::string* stringIn(const VNValue::Dictionary& dictionary, std::string_view key) {
  auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : found->second.asString();
}

bool sameString(const std::string* a, const std::string* b) { return a && b && *a == *b; }

std::vector<std::string_view> components(std::string_view text) {
  std::vector<std::string_view> parts;
  for (size_t start = 0;;) {
    size_t dot = text.find('.', start);
    parts.push_back(text.substr(start, dot - start));
    if (dot == std::string_view::npos) return parts;
    start = dot + 1;
  }
}

}  // namespace

std::shared_ptr<VNUVersion> VNUDataTemplateUtilities::systemVersionForMountPoint(const VNFileURL& mountPoint) {
  if (mountPoint.empty()) return nullptr;
  std::string path = mountPoint.URLByAppendingPathComponent(VNDataTemplateLocations::kSystemVersionFile).path();
  std::optional<VNValue> file = VNValue::fromPropertyListFile(path);
  if (!file || !file->asDictionary()) return nullptr;
  auto version = VNUVersion::init();
  if (const std::string* build = file->findString("ProductBuildVersion")) version->setBuildNumber(*build);
  const std::string* product = file->findString("ProductVersion");
  if (!product) return version;
  version->setVersionString(*product);
  std::vector<std::string_view> parts = components(*product);
  version->setVersionMajor(VNUVersion::componentValue(parts[0]));
  if (parts.size() > 1) version->setVersionMinor(VNUVersion::componentValue(parts[1]));
  if (parts.size() > 2) version->setVersionPatch(VNUVersion::componentValue(parts[2]));
  return version;
}

VNValue::Array VNUDataTemplateUtilities::parseTetherlinkManifestForVolume(const VNFileURL& volume, bool liveResolution,
                                                                          VNError*) {
  auto resolver = VNPlatformSlot<VNTetherlinkResolver>::get();
  const char* path = volume.path().c_str();
  auto definitions = resolver->openVolume(path, VNTetherlinkResolver::kKindDefinitions, 0);
  auto mounted = resolver->openVolume(path, VNTetherlinkResolver::kKindMounted, 0);
  auto group = resolver->createGroup(liveResolution ? 0x5 : 0x4);
  resolver->addVolume(*group, definitions);
  resolver->addVolume(*group, mounted);
  VNValue::Array mappings;
  resolver->iterateMappings(*group, VNTetherlinkResolver::kFilterEachOnce,
                            [&mappings](const char* source, const char* destination) {
                              VNValue record = VNValue::dictionary();
                              record.set(VNUDTTetherlinkSourceKey, source);
                              record.set(VNUDTTetherlinkDestinationKey, destination);
                              mappings.push_back(std::move(record));
                              return 0;
                            });
  return mappings;
}

VNValue::Array VNUDataTemplateUtilities::parseTetherlinkManifestForVolume(const VNFileURL& volume, VNError* error) {
  return parseTetherlinkManifestForVolume(volume, /*liveResolution=*/true, error);
}

VNUTemplateSyncState VNUDataTemplateUtilities::determineTemplateSyncBetween(const VNFileURL& systemRoot,
                                                                            const VNFileURL& dataRoot) {
  VNFileURL system = systemRoot.empty() ? VNFileURL::fileURLWithPath("/", /*isDirectory=*/true) : systemRoot;
  VNFileURL data = dataRoot.empty() ? system : dataRoot;
  std::string receiptName = std::string(VNDataTemplateLocations::kReceiptsFolder) + "/" +
                            VNUDTTemplateReceiptIdentifier + ".plist";
  VNValue::Dictionary receipt = dictionaryAt(data, receiptName);
  VNValue::Dictionary version = dictionaryAt(system, VNDataTemplateLocations::kSystemVersionFile);
  if (version.empty()) return VNUTemplateSyncStateNoSystemVersion;
  if (receipt.empty()) return VNUTemplateSyncStateNoTemplateReceipt;
  static const VNValue::Dictionary kNone;
  auto information = receipt.find("AdditionalInformation");
  const VNValue::Dictionary* added = information == receipt.end() ? nullptr : information->second.asDictionary();
  if (!added) added = &kNone;
  if (!sameString(stringIn(version, "ProductVersion"), stringIn(*added, "SystemVersion")))
    return VNUTemplateSyncStateOutOfSync;
  if (!sameString(stringIn(version, "ProductBuildVersion"), stringIn(*added, "SystemBuild")))
    return VNUTemplateSyncStateOutOfSync;
  return VNUTemplateSyncStateInSync;
}
