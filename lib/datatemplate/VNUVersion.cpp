// Integer value of a version component.
#include "datatemplate/VNUVersion.h"

#include <limits>

std::int64_t VNUVersion::componentValue(std::string_view component) {
  size_t i = component.find_first_not_of(" \t\n\v\f\r");
  if (i == std::string_view::npos) return 0;
  bool negative = component[i] == '-';
  if (component[i] == '-' || component[i] == '+') ++i;
  constexpr std::uint64_t kMax = std::numeric_limits<std::int64_t>::max();
  const std::uint64_t limit = negative ? kMax + 1 : kMax;
  std::uint64_t value = 0;
  for (; i < component.size() && component[i] >= '0' && component[i] <= '9'; ++i) {
    unsigned digit = static_cast<unsigned>(component[i] - '0');
    value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
  }
  if (!negative) return static_cast<std::int64_t>(value);
  return value == limit ? std::numeric_limits<std::int64_t>::min() : -static_cast<std::int64_t>(value);
}
