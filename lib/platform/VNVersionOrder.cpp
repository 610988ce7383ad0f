// The order of component versions; docs/bundle-versions.md states its rules.
#include <cstring>

#include "platform/VNComponentVersion.h"

namespace {

// What a version string holds at one position, in the order of its kinds: a
// run of letters (a pre-release marker such as "b" or "beta") sorts before
// the end of the string, and the end before a number.
enum class Kind { Letters, End, Number };

struct Token {
  Kind kind = Kind::End;
  std::string_view text;
};

bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }
bool isLetter(unsigned char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; }
// Bytes above ASCII belong to letter runs, so a UTF-8 word stays one run.
bool isWordByte(unsigned char c) { return isLetter(c) || c >= 0x80; }

// Cuts the next number or letter run from `rest`; separators only divide.
Token nextToken(std::string_view& rest) {
  std::size_t start = 0;
  while (start < rest.size() && !isDigit(rest[start]) && !isWordByte(rest[start])) ++start;
  if (start == rest.size()) {
    rest = {};
    return {};
  }
  bool digits = isDigit(rest[start]);
  std::size_t end = start + 1;
  while (end < rest.size() && (digits ? isDigit(rest[end]) : isWordByte(rest[end]))) ++end;
  Token token{digits ? Kind::Number : Kind::Letters, rest.substr(start, end - start)};
  rest.remove_prefix(end);
  return token;
}

int sign(int value) { return (value > 0) - (value < 0); }

// Numbers of any length by value: without leading zeros, the longer is
// larger, and equal lengths compare digit by digit.
int compareNumbers(std::string_view a, std::string_view b) {
  a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
  b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return a.empty() ? 0 : sign(std::memcmp(a.data(), b.data(), a.size()));
}

unsigned char folded(unsigned char c) { return isLetter(c) ? (c | 0x20) : c; }

// Letter runs alphabetically, ignoring ASCII case; a prefix sorts first.
int compareLetters(std::string_view a, std::string_view b) {
  std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    unsigned char x = folded(a[i]), y = folded(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

int compareTokens(const Token& a, const Token& b) {
  if (a.kind != b.kind) return a.kind < b.kind ? -1 : 1;
  if (a.kind == Kind::Number) return compareNumbers(a.text, b.text);
  if (a.kind == Kind::Letters) return compareLetters(a.text, b.text);
  return 0;
}

// Run by run; strings alike in every run ("1.01", "1-1", "1.1") are put in
// order by their bytes, so that only equal strings compare equal.
int compareStrings(std::string_view first, std::string_view second) {
  std::string_view a = first, b = second;
  for (;;) {
    Token x = nextToken(a), y = nextToken(b);
    if (int order = compareTokens(x, y)) return order;
    if (x.kind == Kind::End) break;
  }
  return sign(first.compare(second));
}

// An absent string sorts before every present one.
int compareOptional(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  if (!a || !b) return int(bool(a)) - int(bool(b));
  return compareStrings(*a, *b);
}

}  // namespace

int VNCompareVersionStrings(std::string_view first, std::string_view second) {
  return compareStrings(first, second);
}

VNComponentVersionOrder VNCompareComponentVersions(const VNComponentVersion& first,
                                                   const VNComponentVersion& second) {
  using Field = VNComponentVersionField;
  const std::pair<Field, const std::optional<std::string> VNComponentVersion::*> fields[] = {
      {Field::ShortVersionString, &VNComponentVersion::shortVersionString},
      {Field::BundleVersion, &VNComponentVersion::bundleVersion},
      {Field::SourceVersion, &VNComponentVersion::sourceVersion},
      {Field::BuildVersion, &VNComponentVersion::buildVersion},
  };
  for (const auto& [field, member] : fields)
    if (int order = compareOptional(first.*member, second.*member)) return {order, field};
  return {};
}
