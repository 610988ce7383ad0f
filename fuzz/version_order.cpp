// The order of version strings on arbitrary bytes: antisymmetric, equal only
// for equal strings, and transitive over three strings.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/VNComponentVersion.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 8192) return 0;
  std::string_view all(reinterpret_cast<const char*>(data + 2), size - 2);
  std::size_t first = data[0] % (all.size() + 1), second = data[1] % (all.size() - first + 1);
  std::string_view a = all.substr(0, first), b = all.substr(first, second), c = all.substr(first + second);
  int ab = VNCompareVersionStrings(a, b), bc = VNCompareVersionStrings(b, c), ac = VNCompareVersionStrings(a, c);
  if (ab != -VNCompareVersionStrings(b, a) || (ab == 0) != (a == b)) std::abort();
  if (ab <= 0 && bc <= 0 && ac > 0) std::abort();
  if (ab >= 0 && bc >= 0 && ac < 0) std::abort();
  return 0;
}
