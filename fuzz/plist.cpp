// Property lists handed to the library are untrusted: whatever bytes come
// in must either be refused with EINVAL or read as a value that survives
// being written as XML and as binary and read back unchanged.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "foundation/VNError.h"
#include "foundation/VNValue.h"
#include "support/VNPlistRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  if (size > (1u << 16)) return 0;
  VNError error;
  auto value = VNValue::fromPropertyList({data, size}, &error, "input");
  if (!value) {
    if (error.isPOSIX(EINVAL)) return 0;
    std::fprintf(stderr, "refused without EINVAL: %s\n", error.description().c_str());
    std::abort();
  }
  (void)value->description();
  (void)value->jsonString();
  std::string problem = VNPlistRoundTripProblem(*value);
  if (!problem.empty()) {
    std::fprintf(stderr, "round trip failed: %s\n", problem.c_str());
    std::abort();
  }
  return 0;
}
