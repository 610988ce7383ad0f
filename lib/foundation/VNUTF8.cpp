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
