// JSON handed to the tool is untrusted: whatever bytes come in must either be
// refused or read as a value whose JSON text reads back to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "foundation/VNValue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  auto value = VNValue::fromJSON({reinterpret_cast<const char*>(data), size});
  if (!value) return 0;
  const std::string written = value->jsonString();
  auto again = VNValue::fromJSON(written);
  if (!again || again->jsonString() != written || again->jsonString(true) != value->jsonString(true)) {
    std::fprintf(stderr, "JSON round trip failed for %s\n", written.c_str());
    std::abort();
  }
  return 0;
}
