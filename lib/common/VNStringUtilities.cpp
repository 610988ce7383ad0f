#include "common/VNStringUtilities.h"

#include <openssl/evp.h>
#include <regex.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <vector>

#include "foundation/VNFileURL.h"
#include "foundation/VNFormat.h"
#include "foundation/VNUTF8.h"

namespace {

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

struct FreeDeleter {
  void operator()(utf8proc_uint8_t* p) const { std::free(p); }
};

void appendUTF16(std::u16string& units, utf8proc_int32_t cp) {
  if (cp < 0x10000) {
    units.push_back(static_cast<char16_t>(cp));
    return;
  }
  cp -= 0x10000;
  units.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
  units.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
}

// Appends the canonical decomposition of valid UTF-8 `run` as UTF-16.
void appendDecomposed(std::u16string& units, std::string_view run) {
  if (isASCII(run)) {
    units.append(run.begin(), run.end());
    return;
  }
  utf8proc_uint8_t* raw = nullptr;
  utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(run.data()),
                   static_cast<utf8proc_ssize_t>(run.size()), &raw,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE));
  std::unique_ptr<utf8proc_uint8_t, FreeDeleter> decomposed(raw);
  for (utf8proc_ssize_t i = 0; i < length;) {
    utf8proc_int32_t cp = 0;
    i += utf8proc_iterate(decomposed.get() + i, length - i, &cp);
    appendUTF16(units, cp);
  }
}

// The canonical decomposition of `text` as UTF-16 code units: valid UTF-8
// runs decomposed, each byte outside them as its escaped lone surrogate.
std::u16string decomposedUTF16(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    size_t run = VNUTF8ValidLength(text.substr(at));
    appendDecomposed(units, text.substr(at, run));
    at += run;
    if (at < text.size()) units.push_back(VNUTF8EscapedByte(static_cast<unsigned char>(text[at++])));
  }
  return units;
}

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

// The bytes decomposedUTF16 stands for: UTF-8 of the characters, each
// escaped byte as itself.
std::string toUTF8(std::u16string_view units) {
  std::string out;
  out.reserve(units.size());
  for (size_t i = 0; i < units.size(); ++i) {
    char32_t cp = units[i];
    if (isHighSurrogate(units[i]) && i + 1 < units.size()) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (units[i + 1] - 0xDC00);
      ++i;
    }
    VNAppendUTF8(out, cp);
  }
  return out;
}

class CompiledRegex {
 public:
  explicit CompiledRegex(const std::string& pattern)
      : ok_(::regcomp(&regex_, pattern.c_str(), REG_EXTENDED | REG_NOSUB) == 0) {}
  ~CompiledRegex() {
    if (ok_) ::regfree(&regex_);
  }
  CompiledRegex(const CompiledRegex&) = delete;
  CompiledRegex& operator=(const CompiledRegex&) = delete;

  bool compiled() const { return ok_; }
  bool matches(const std::string& text) const {
    return ::regexec(&regex_, text.c_str(), 0, nullptr, 0) == 0;
  }

 private:
  regex_t regex_{};
  bool ok_;
};

}  // namespace

namespace VNUtilities {

bool VN_hasPrefix(std::string_view string, std::string_view prefix) {
  auto whole = decomposedUTF16(string);
  auto head = decomposedUTF16(prefix);
  return whole.size() >= head.size() && std::equal(head.begin(), head.end(), whole.begin());
}

bool VN_hasSuffix(std::string_view string, std::string_view suffix) {
  auto whole = decomposedUTF16(string);
  auto tail = decomposedUTF16(suffix);
  if (tail.empty()) return false;
  return whole.size() >= tail.size() && std::equal(tail.rbegin(), tail.rend(), whole.rbegin());
}

std::string VN_stringByRemovingPrefix(std::string_view string, std::string_view prefix) {
  auto whole = decomposedUTF16(string);
  size_t start = decomposedUTF16(prefix).size();
  if (start > whole.size()) return {};
  if (start > 0 && start < whole.size() && isHighSurrogate(whole[start - 1])) ++start;
  return toUTF8(std::u16string_view(whole).substr(start));
}

std::string VN_stringWithTrailingSlash(std::string_view string) {
  std::string out(string);
  if (out.empty() || out.back() != '/') out += '/';
  return out;
}

bool containsString(std::string_view string, std::string_view needle) {
  return !needle.empty() && string.find(needle) != std::string_view::npos;
}

bool containsRegEx(std::string_view string, std::string_view pattern) {
  CompiledRegex regex{std::string(pattern.substr(0, pattern.find('\0')))};
  return regex.compiled() && regex.matches(std::string(string.substr(0, string.find('\0'))));
}

bool VN_pathRefersToFSRoot(std::string_view path) {
  size_t count = VNPathComponents(path).size();
  bool leading = VN_hasPrefix(path, "/");
  bool trailing = VN_hasSuffix(path, "/");
  return count == 1 || (count == 2 && leading != trailing) || (count == 3 && leading && trailing);
}

std::string VN_sha256Hash(std::string_view string) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (!EVP_Digest(string.data(), string.size(), digest.data(), &size, EVP_sha256(), nullptr))
    return {};
  std::string hex;
  hex.reserve(size * 2);
  for (unsigned int i = 0; i < size; ++i) hex += VNFormat("%02hhx", digest[i]);
  return hex;
}

std::string VN_stringWithFormat(std::string_view format, const VNValue::Array& args) {
  constexpr size_t kMaxArgs = 10;
  std::vector<VNFormatArg> list;
  list.reserve(kMaxArgs);
  for (size_t i = 0; i < kMaxArgs; ++i)
    list.push_back(i < args.size() ? VNFormatArg(args[i]) : VNFormatArg(nullptr));
  return VNFormatArgs(format, list);
}

}  // namespace VNUtilities
