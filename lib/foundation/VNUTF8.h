#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// File names and other text from disk are bytes that are usually, but not
// always, UTF-8. Readers split such a string into maximal runs of valid UTF-8
// and the single bytes between them:
//
//   size_t at = 0;
//   while (at < text.size()) {
//     size_t run = VNUTF8ValidLength(text.substr(at));
//     ... text.substr(at, run) is valid UTF-8 (possibly empty) ...
//     at += run;
//     if (at < text.size()) ... text[at] is a byte outside UTF-8 ..., ++at;
//   }
//
// Valid means well-formed UTF-8 of a Unicode scalar value: no overlong forms,
// no surrogates, nothing above U+10FFFF, no truncated sequence. NUL is valid.

// Length in bytes of the longest valid UTF-8 prefix of `text`.
VN_EXPORT size_t VNUTF8ValidLength(std::string_view text);

// Whether all of `text` is valid UTF-8.
inline bool VNIsValidUTF8(std::string_view text) { return VNUTF8ValidLength(text) == text.size(); }

// Each byte outside UTF-8 stands, in UTF-16 and in JSON, for the lone low
// surrogate U+DC00 plus the byte (U+DC80 to U+DCFF), a code point valid UTF-8
// never carries, so the escaped form maps back to the original bytes.
inline constexpr char16_t VNUTF8EscapedByte(unsigned char byte) {
  return static_cast<char16_t>(0xDC00 | byte);
}
inline constexpr bool VNUTF8IsEscapedByte(char32_t unit) { return unit >= 0xDC80 && unit <= 0xDCFF; }

// Appends the UTF-8 of `codePoint` to `out`; an escaped byte (U+DC80 to
// U+DCFF) is appended as the byte it stands for.
VN_EXPORT void VNAppendUTF8(std::string& out, char32_t codePoint);
