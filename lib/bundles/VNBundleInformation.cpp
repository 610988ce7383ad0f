#include "bundles/VNBundleInformation.h"

#include "platform/VNBundleService.h"
#include "platform/VNComponentVersion.h"
#include "platform/VNPlatformService.h"

namespace VNUtilities {
namespace {

namespace Key = VNBundleInformationKey;

void setIfPresent(VNValue::Dictionary& into, const char* key, std::optional<std::string> value) {
  if (value) into.insert_or_assign(key, VNValue(std::move(*value)));
}

// The facts of the bundle's information dictionary.
void addInfoFacts(VNValue::Dictionary& into, const VNOpenedBundle& bundle) {
  std::optional<VNValue> identifier = bundle.infoValue("QFBundleIdentifier");
  if (identifier && identifier->asString()) into.insert_or_assign(Key::kBundleIdentifier, std::move(*identifier));
  if (std::optional<VNValue> value = bundle.infoValue("QFBundleShortVersionString"))
    into.insert_or_assign(Key::kRawShortVersionString, VNValue(value->description()));
  if (std::optional<VNValue> value = bundle.infoValue("QFBundleVersion"))
    into.insert_or_assign(Key::kRawBundleVersion, VNValue(value->description()));
  VNComponentVersion version = VNComponentVersion::ofBundle(bundle);
  setIfPresent(into, Key::kShortVersionString, std::move(version.shortVersionString));
  setIfPresent(into, Key::kSourceVersion, std::move(version.sourceVersion));
  setIfPresent(into, Key::kBuildVersion, std::move(version.buildVersion));
  setIfPresent(into, Key::kBundleVersion, std::move(version.bundleVersion));
}

}  // namespace

VNValue VN_bundleInformationAtPath(const VNFileURL& url) {
  VNValue::Dictionary facts;
  std::optional<VNOpenedBundle> bundle = VNPlatformSlot<VNBundleService>::get()->openBundle(url);
  if (!bundle) return VNValue(std::move(facts));
  addInfoFacts(facts, *bundle);
  facts.insert_or_assign(Key::kStore, VNValue(bundle->hasItem("Contents/_EmporiaReceipt")));
  return VNValue(std::move(facts));
}

VNValue VN_legacyBundleInfoToCurrentBundleInfo(const VNValue& legacy) {
  static constexpr std::pair<const char*, const char*> kLegacyKeys[] = {
      {"bnlID", Key::kBundleIdentifier}, {"stVsStr", Key::kShortVersionString},
      {"srcV", Key::kSourceVersion},     {"bldV", Key::kBuildVersion},
      {"bnlV", Key::kBundleVersion},     {"bnlASV", Key::kStore},
  };
  const VNValue::Dictionary* entries = legacy.asDictionary();
  VNValue::Dictionary current = entries ? *entries : VNValue::Dictionary{};
  for (const auto& [legacyKey, currentKey] : kLegacyKeys)
    if (const VNValue* value = legacy.find(legacyKey)) current.insert_or_assign(currentKey, *value);
  return VNValue(std::move(current));
}

}  // namespace VNUtilities
