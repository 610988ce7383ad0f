// The running system's version from os-release(5).
#include <string_view>
#include <vector>

#include "foundation/VNFileIO.h"
#include "platform/VNRunningSystemVersion.h"

namespace {

// os-release files are a few hundred bytes; anything far larger is not one.
constexpr std::size_t kMaxOSReleaseBytes = 64 * 1024;

// One value as os-release(5) writes it: bare, or in single or double quotes,
// where a backslash escapes the next character of "\"$`\\" in double quotes.
std::string unquote(std::string_view value) {
  if (value.size() < 2 || (value.front() != '"' && value.front() != '\'') ||
      value.back() != value.front())
    return std::string(value);
  char quote = value.front();
  value = value.substr(1, value.size() - 2);
  std::string out;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (quote == '"' && value[i] == '\\' && i + 1 < value.size() &&
        std::string_view("\"$`\\").find(value[i + 1]) != std::string_view::npos)
      ++i;
    out += value[i];
  }
  return out;
}

VNValue::Dictionary parseOSRelease(std::string_view text) {
  VNValue::Dictionary fields;
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    std::size_t equals = line.find('=');
    if (line.empty() || line.front() == '#' || equals == std::string_view::npos) continue;
    fields[std::string(line.substr(0, equals))] = VNValue(unquote(line.substr(equals + 1)));
  }
  return fields;
}

class OSReleaseVersion final : public VNRunningSystemVersion {
 public:
  explicit OSReleaseVersion(std::vector<std::string> candidates) : candidates_(std::move(candidates)) {}

  VNValue versionDictionary() override {
    for (const std::string& path : candidates_) {
      std::optional<std::string> text = VNReadFile(path, kMaxOSReleaseBytes);
      if (text) return translate(parseOSRelease(*text));
    }
    return VNValue::dictionary();
  }

 private:
  static VNValue translate(const VNValue::Dictionary& fields) {
    static constexpr std::pair<const char*, const char*> kKeys[] = {
        {"NAME", "ProductName"}, {"VERSION_ID", "ProductVersion"}, {"BUILD_ID", "ProductBuildVersion"}};
    VNValue version = VNValue::dictionary();
    for (auto [field, key] : kKeys)
      if (auto found = fields.find(field); found != fields.end()) version.set(key, found->second);
    return version;
  }

  std::vector<std::string> candidates_;
};

}  // namespace

std::shared_ptr<VNRunningSystemVersion> VNRunningSystemVersion::makeDefault() {
  return std::make_shared<OSReleaseVersion>(
      std::vector<std::string>{"/etc/os-release", "/usr/lib/os-release"});
}

std::shared_ptr<VNRunningSystemVersion> VNRunningSystemVersion::makeFromOSRelease(std::string path) {
  return std::make_shared<OSReleaseVersion>(std::vector<std::string>{std::move(path)});
}
