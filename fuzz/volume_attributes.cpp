// Fuzzes the readers of the role and group attributes a subvolume records.
// Checks that can fail: an accepted role is one of the two known ones; an
// accepted group is 36 characters of lowercase hex digits and dashes, and
// reads back as itself.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/internal/VNVolumeAttributes.h"

namespace {

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "check failed: %s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view raw(reinterpret_cast<const char*>(data), size);
  if (auto role = VNParseVolumeRole(raw)) check(*role == "system" || *role == "data", "known role");
  if (auto group = VNParseVolumeGroup(raw)) {
    check(group->size() == 36, "group length");
    check(group->find_first_not_of("0123456789abcdef-") == std::string::npos, "group characters");
    check(VNParseVolumeGroup(*group) == group, "group reads back");
  }
  return 0;
}
