// One-line text rendering of file names for the tool's text output.
#include "Command.h"

#include <fmt/format.h>

namespace varnel {
namespace {

// Length of the well-formed UTF-8 sequence at the start of `s`, 0 when the
// bytes there are not one (overlong forms and surrogates included).
size_t utf8SequenceLength(std::string_view s) {
  auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
  unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (length == 0 || lead > 0xF4 || s.size() < length) return 0;
  for (size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  unsigned char second = byte(1);
  if (lead == 0xE0 && second < 0xA0) return 0;
  if (lead == 0xED && second >= 0xA0) return 0;
  if (lead == 0xF0 && second < 0x90) return 0;
  if (lead == 0xF4 && second >= 0x90) return 0;
  return length;
}

bool needsQuoting(std::string_view name) {
  for (size_t i = 0; i < name.size();) {
    unsigned char c = static_cast<unsigned char>(name[i]);
    size_t length = utf8SequenceLength(name.substr(i));
    if (length == 0 || c < 0x20 || c == 0x7F) return true;
    i += length;
  }
  return false;
}

}  // namespace

std::string quotedName(std::string_view name) {
  if (!needsQuoting(name)) return std::string(name);
  std::string out = "$'";
  for (size_t i = 0; i < name.size();) {
    unsigned char c = static_cast<unsigned char>(name[i]);
    size_t length = utf8SequenceLength(name.substr(i));
    if (length > 1) {
      out.append(name.substr(i, length));
      i += length;
      continue;
    }
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      case '\\': out += "\\\\"; break;
      case '\'': out += "\\'"; break;
      default:
        if (c < 0x20 || c >= 0x7F) out += fmt::format("\\{:03o}", c);
        else out += static_cast<char>(c);
    }
    ++i;
  }
  return out + "'";
}

}  // namespace varnel
