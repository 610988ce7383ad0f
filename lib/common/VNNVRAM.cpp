#include <cerrno>
#include <cstring>
#include <optional>

#include "common/VNGeneralUtilities.h"
#include "common/VNLogging.h"
#include "foundation/VNFormat.h"
#include "platform/VNFirmwareVariables.h"
#include "platform/VNPlatformService.h"

namespace {

template <class T>
std::string littleEndianBytes(T number) {
  static_assert(std::endian::native == std::endian::little, "written in host order");
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

// The bytes stored for `value`, or nothing for a value that has none.
std::optional<std::string> variableBytes(const VNValue& value) {
  using Kind = VNValue::Kind;
  switch (value.kind()) {
    case Kind::Null: return std::nullopt;
    case Kind::Boolean: return std::string(1, *value.asBoolean() ? '\1' : '\0');
    case Kind::Integer: return littleEndianBytes(*value.asInteger());
    case Kind::Real: return littleEndianBytes(*value.asReal());
    case Kind::String: return *value.asString();
    case Kind::Data: return std::string(value.asData()->begin(), value.asData()->end());
    default: return value.propertyListData(VNValue::Format::Binary);
  }
}

template <class... Args>
void logError(std::string_view format, const Args&... args) {
  VNLogging::logType(VNLogTypeError, "writeNVRAMVariable", 0, VNFormat(format, args...));
}

}  // namespace

namespace VNUtilities {

bool writeNVRAMVariable(const std::string& name, const VNValue& value) {
  auto store = VNPlatformSlot<VNFirmwareVariables>::get();
  if (!store->isAvailable()) {
    logError("Could not obtain Kelvane node to write NVRAM key \"%@\"", name);
    return false;
  }
  const auto bytes = variableBytes(value);
  const int status = bytes ? store->writeVariable(name, *bytes) : EINVAL;
  if (status != 0) {
    logError("Could not write NVRAM key \"%@\" Error Return: %d", name, status);
    return false;
  }
  return true;
}

}  // namespace VNUtilities
