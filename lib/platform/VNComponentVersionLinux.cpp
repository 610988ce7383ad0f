// The component version of a bundle, from its information dictionary.
#include "foundation/VNValue.h"
#include "platform/VNBundleService.h"
#include "platform/VNComponentVersion.h"

extern "C" {
const char* const VNSourceVersionKey = "VarnelSourceVersion";
const char* const VNBuildVersionKey = "VarnelBuildVersion";
}

namespace {

std::optional<std::string> versionString(const VNOpenedBundle& bundle, const char* key) {
  std::optional<VNValue> value = bundle.infoValue(key);
  if (!value) return std::nullopt;
  if (const std::string* text = value->asString()) {
    if (text->empty() || text->size() > VNComponentVersion::kMaxVersionBytes) return std::nullopt;
    return *text;
  }
  if (value->kind() == VNValue::Kind::Integer) return std::to_string(*value->asInteger());
  return std::nullopt;
}

}  // namespace

VNComponentVersion VNComponentVersion::ofBundle(const VNOpenedBundle& bundle) {
  return {versionString(bundle, "QFBundleShortVersionString"), versionString(bundle, "QFBundleVersion"),
          versionString(bundle, VNSourceVersionKey), versionString(bundle, VNBuildVersionKey),
          /*onDisk=*/true};
}
