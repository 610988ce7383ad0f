// Fuzzes how host files become identity values: the machine-info reader,
// the one-value firmware file reader, the model identifier, the chassis
// number and the device-type mapping. The input is the file text; for the
// model identifier it is split at its first NUL into name and version.
// Checks that can fail: a pretty name is non-empty printable UTF-8; a
// firmware text is printable UTF-8 with no surrounding blanks and reads back
// unchanged; a model identifier starts with its name; every chassis word and
// model maps to a type with a description.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "foundation/VNUTF8.h"
#include "platform/internal/VNDeviceTypes.h"
#include "platform/internal/VNHostIdentityParsing.h"

namespace {

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "check failed: %s\n", what);
  std::abort();
}

bool printable(std::string_view text) {
  if (!VNIsValidUTF8(text)) return false;
  for (unsigned char c : text)
    if (c < 0x20 || c == 0x7f) return false;
  return true;
}

void checkFirmwareText(std::string_view raw) {
  const std::string text = VNSysfsText(raw);
  check(printable(text), "firmware text printable");
  check(text.empty() || (text.front() != ' ' && text.front() != '\t' && text.back() != ' ' && text.back() != '\t'),
        "firmware text trimmed");
  check(VNSysfsText(text) == text, "firmware text reads back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 8192) return 0;
  const std::string_view raw(reinterpret_cast<const char*>(data), size);

  if (auto name = VNMachineInfoPrettyHostname(raw)) check(!name->empty() && printable(*name), "pretty name");
  checkFirmwareText(raw);

  const auto split = raw.find('\0');
  const std::string name = VNSysfsText(raw.substr(0, split));
  const std::string version = split == std::string_view::npos ? std::string() : VNSysfsText(raw.substr(split + 1));
  const std::string model = VNModelIdentifierFromFirmware(name, version);
  check(model.substr(0, name.size()) == name && (model.empty() == name.empty()), "model starts with name");

  const auto chassis = VNChassisOfFirmwareType(raw);
  check(!VNDeviceTypeDescription(VNDeviceTypeOfChassis(chassis)).empty(), "chassis has a type");
  check(!chassis || VNDeviceTypeOfChassis(chassis) != VNDeviceTypeOfChassis(std::nullopt), "known chassis word");
  check(!VNDeviceTypeDescription(VNDeviceTypeOfModel(raw)).empty(), "model has a type");
  return 0;
}
