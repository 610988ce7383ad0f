// The canonical-decomposition comparisons on arbitrary bytes: never read
// outside a string, and agree with each other on any bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/VNStringUtilities.h"

using namespace VNUtilities;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 4096) return 0;
  std::size_t split = data[0] % size;
  std::string string(reinterpret_cast<const char*>(data + 1), split);
  std::string prefix(reinterpret_cast<const char*>(data + 1 + split), size - 1 - split);
  // Every byte string compares, bytes outside UTF-8 as themselves.
  std::string decomposedString = VN_stringByRemovingPrefix(string, "");
  std::string decomposedPrefix = VN_stringByRemovingPrefix(prefix, "");
  if (VN_hasPrefix(string, prefix) &&
      decomposedPrefix + VN_stringByRemovingPrefix(string, prefix) != decomposedString)
    std::abort();
  if (VN_hasSuffix(string, prefix) && prefix.empty()) std::abort();
  if (!VN_hasPrefix(string, string) || !VN_hasPrefix(string, "")) std::abort();
  if (!string.empty() && !VN_hasSuffix(string, string)) std::abort();
  // Decomposing is idempotent and keeps every byte outside UTF-8.
  if (!VN_hasPrefix(decomposedString, string) || !VN_hasPrefix(string, decomposedString)) std::abort();
  if (VN_stringByRemovingPrefix(decomposedString, "") != decomposedString) std::abort();
  // glibc's regcomp needs memory exponential in stacked or nested
  // repetitions, so only patterns without them are fuzzed here.
  if (prefix.find_first_of("*+?{") == std::string::npos) containsRegEx(string, prefix);
  return 0;
}
