// The component version of a bundle, from its information dictionary.
#include "foundation/VNValue.h"
#include "platform/VNComponentVersion.h"

extern "C" {
const char* const VNSourceVersionKey = "VarnelSourceVersion";
const char* const VNBuildVersionKey = "VarnelBuildVersion";
}

namespace {

std::optional<std::string> versionString(const VNValue& info, std::string_view key) {
  const VNValue* value = info.find(key);
  if (!value) return std::nullopt;
  if (const std::string* text = value->asString()) {
    if (text->empty() || text->size() > VNComponentVersion::kMaxVersionBytes) return std::nullopt;
    return *text;
  }
  if (value->kind() == VNValue::Kind::Integer) return std::to_string(*value->asInteger());
  return std::nullopt;
}

}  // namespace

VNComponentVersion VNComponentVersion::ofInfoDictionary(const VNValue& info) {
  return {versionString(info, "QFBundleShortVersionString"), versionString(info, "QFBundleVersion"),
          versionString(info, VNSourceVersionKey), versionString(info, VNBuildVersionKey),
          /*onDisk=*/true};
}
