#include "platform/internal/VNHostIdentityParsing.h"

#include <array>
#include <charconv>
#include <utility>

#include "foundation/VNUTF8.h"

namespace {

bool isPrintableText(std::string_view text) {
  if (!VNIsValidUTF8(text)) return false;
  for (unsigned char c : text)
    if (c < 0x20 || c == 0x7f) return false;
  return true;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// One environment-file value: quotes removed, escapes in double quotes
// resolved. Nothing for an unterminated quote.
std::optional<std::string> unquoted(std::string_view value) {
  value = trimmed(value);
  if (value.empty() || (value.front() != '"' && value.front() != '\'')) return std::string(value);
  const char quote = value.front();
  std::string out;
  for (std::size_t i = 1; i < value.size(); ++i) {
    const char c = value[i];
    if (c == quote) return i + 1 == value.size() ? std::optional(out) : std::nullopt;
    if (quote == '"' && c == '\\' && i + 1 < value.size()) {
      out += value[++i];
      continue;
    }
    out += c;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> VNMachineInfoPrettyHostname(std::string_view text) {
  constexpr std::string_view key = "PRETTY_HOSTNAME=";
  std::optional<std::string> found;
  while (!text.empty()) {
    const auto end = text.find('\n');
    std::string_view line = trimmed(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    if (line.substr(0, key.size()) != key) continue;
    found = unquoted(line.substr(key.size()));  // the last assignment wins
  }
  if (!found || found->empty() || !isPrintableText(*found)) return std::nullopt;
  return found;
}

std::string VNSysfsText(std::string_view raw) {
  const std::string_view value = trimmed(raw.substr(0, raw.find_first_of(std::string_view("\n\0", 2))));
  return isPrintableText(value) ? std::string(value) : std::string();
}

std::string VNModelIdentifierFromFirmware(std::string_view name, std::string_view version) {
  static constexpr std::array<std::string_view, 9> kPlaceholders = {
      "None", "Not Specified", "Not Applicable", "To be filled by O.E.M.", "To Be Filled By O.E.M.",
      "System Version", "Default string", "Type1ProductConfigId", "0"};
  if (name.empty()) return {};
  for (std::string_view placeholder : kPlaceholders)
    if (version == placeholder) version = {};
  if (version.empty() || version == name) return std::string(name);
  return std::string(name) + " " + std::string(version);
}

std::optional<std::string> VNChassisOfFirmwareType(std::string_view raw) {
  // The firmware's chassis types (a table of the system-management firmware
  // standard) grouped the way hostnamed groups them.
  static constexpr std::pair<unsigned, std::string_view> kTypes[] = {
      {3, "desktop"},  {4, "desktop"},  {6, "desktop"},       {7, "desktop"},
      {13, "desktop"}, {35, "desktop"}, {36, "desktop"},      {8, "laptop"},
      {9, "laptop"},   {10, "laptop"},  {14, "laptop"},       {11, "handset"},
      {17, "server"},  {23, "server"},  {28, "server"},       {29, "server"},
      {30, "tablet"},  {31, "convertible"}, {32, "convertible"}, {34, "embedded"}};
  const std::string_view text = trimmed(raw.substr(0, raw.find('\n')));
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  for (const auto& [type, word] : kTypes)
    if (type == number) return std::string(word);
  return std::nullopt;
}
