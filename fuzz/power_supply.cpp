// Fuzzes how a power supply's attribute files become battery properties and
// a power-source description. The input is the files' contents separated by
// NUL bytes, in the order of VNSupplyAttributeNames(); a file beyond the
// input is missing. Checks that can fail: an accepted sysfs integer reads
// back from its own decimal text; every property is an integer in the signed
// 32-bit range; the description's state is one of its two words.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "platform/internal/VNPowerSupplyReading.h"

namespace {

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "check failed: %s\n", what);
  std::abort();
}

VNSupplyFiles filesFrom(std::string_view raw) {
  VNSupplyFiles files;
  for (const auto& name : VNSupplyAttributeNames()) {
    if (raw.empty()) break;
    std::size_t end = raw.find('\0');
    files.emplace(name, std::string(raw.substr(0, end)));
    raw = end == std::string_view::npos ? std::string_view() : raw.substr(end + 1);
  }
  return files;
}

void checkIntegers(const VNValue& dictionary) {
  for (const auto& [key, value] : *dictionary.asDictionary()) {
    if (value.asString()) continue;
    auto number = value.asInteger();
    check(number.has_value(), "integer property");
    check(*number >= std::numeric_limits<std::int32_t>::min() &&
              *number <= std::numeric_limits<std::int32_t>::max(),
          "property in 32-bit range");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 4096) return 0;
  std::string_view raw(reinterpret_cast<const char*>(data), size);
  if (auto value = VNSysfsInteger(raw)) check(VNSysfsInteger(std::to_string(*value)) == value, "reads back");
  VNSupplyFiles files = filesFrom(raw);
  const bool external = VNExternalPowerConnected({VNSupply{"BAT0", files}});
  checkIntegers(VNBatteryRegistryProperties(files, external));
  VNValue description = VNBatteryDescription(files, external);
  checkIntegers(description);
  const std::string* state = description.findString("Power Source State");
  check(state && (*state == "AC Power" || *state == "Battery Power"), "state word");
  return 0;
}
