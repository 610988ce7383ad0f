#include "platform/internal/VNProcFields.h"

#include <limits>

pid_t VNParseProcessIdentifier(std::string_view entry) {
  if (entry.empty() || entry.size() > 10 || entry[0] == '0') return 0;
  long long value = 0;
  for (char c : entry) {
    if (c < '0' || c > '9') return 0;
    value = value * 10 + (c - '0');
  }
  return value <= std::numeric_limits<pid_t>::max() ? static_cast<pid_t>(value) : 0;
}

std::string VNParseCommandName(std::string_view content) {
  if (!content.empty() && content.back() == '\n') content.remove_suffix(1);
  if (content.find('\0') != std::string_view::npos) return {};
  return std::string(content);
}

std::string VNExecutableBaseName(std::string_view target) {
  constexpr std::string_view deleted = " (deleted)";
  if (target.ends_with(deleted)) target.remove_suffix(deleted.size());
  const size_t slash = target.rfind('/');
  if (slash != std::string_view::npos) target.remove_prefix(slash + 1);
  return std::string(target);
}
