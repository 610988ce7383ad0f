#include "foundation/VNUTF8.h"

#include <utf8proc.h>

size_t VNUTF8ValidLength(std::string_view text) {
  const auto* begin = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  size_t at = 0;
  while (at < text.size()) {
    // ASCII needs no decoding and is by far the most common.
    if (static_cast<unsigned char>(text[at]) < 0x80) {
      ++at;
      continue;
    }
    utf8proc_int32_t codepoint = 0;
    utf8proc_ssize_t used =
        utf8proc_iterate(begin + at, static_cast<utf8proc_ssize_t>(text.size() - at), &codepoint);
    if (used <= 0) break;
    at += static_cast<size_t>(used);
  }
  return at;
}

void VNAppendUTF8(std::string& out, char32_t codePoint) {
  if (VNUTF8IsEscapedByte(codePoint)) {
    out += static_cast<char>(codePoint & 0xFF);
    return;
  }
  if (codePoint < 0x80) {
    out += static_cast<char>(codePoint);
    return;
  }
  const int tail = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
  static constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
  out += static_cast<char>(kLead[tail] | (codePoint >> (6 * tail)));
  for (int i = tail - 1; i >= 0; --i) out += static_cast<char>(0x80 | ((codePoint >> (6 * i)) & 0x3F));
}
