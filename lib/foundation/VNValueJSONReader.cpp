// Reading JSON text into values: the inverse of jsonString, for payloads and
// settings that operators hand to the tool.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>

#include "foundation/VNError.h"
#include "foundation/VNFormat.h"
#include "foundation/VNUTF8.h"
#include "foundation/VNValue.h"

namespace {

constexpr int kMostDepth = 512;

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  std::optional<VNValue> document() {
    std::optional<VNValue> value = parse(0);
    skipSpace();
    if (value && at_ != text_.size()) return fail("text after the value");
    return value;
  }
  size_t failedAt() const { return failedAt_; }
  const char* problem() const { return problem_; }

 private:
  std::nullopt_t fail(const char* problem) {
    if (!problem_) {
      problem_ = problem;
      failedAt_ = at_;
    }
    return std::nullopt;
  }

  bool refuse(const char* problem) {
    fail(problem);
    return false;
  }

  void skipSpace() {
    while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r'))
      ++at_;
  }

  bool take(char c) {
    skipSpace();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }

  bool word(std::string_view w) {
    if (text_.substr(at_, w.size()) != w) return false;
    at_ += w.size();
    return true;
  }

  std::optional<VNValue> parse(int depth) {
    if (depth > kMostDepth) return fail("nested deeper than 512 levels");
    skipSpace();
    if (at_ == text_.size()) return fail("value expected");
    switch (text_[at_]) {
      case '{': return object(depth);
      case '[': return array(depth);
      case '"': {
        std::optional<std::string> s = string();
        if (!s) return std::nullopt;
        return std::optional<VNValue>(std::in_place, std::move(*s));
      }
      case 't': if (word("true")) return VNValue(true); break;
      case 'f': if (word("false")) return VNValue(false); break;
      case 'n': if (word("null")) return VNValue(); break;
      default:
        if (text_[at_] == '-' || (text_[at_] >= '0' && text_[at_] <= '9')) return number();
    }
    return fail("value expected");
  }

  std::optional<VNValue> object(int depth) {
    ++at_;
    VNValue::Dictionary dict;
    if (take('}')) return std::optional<VNValue>(std::in_place, std::move(dict));
    do {
      skipSpace();
      if (at_ == text_.size() || text_[at_] != '"') return fail("key expected");
      std::optional<std::string> key = string();
      if (!key) return std::nullopt;
      if (!take(':')) return fail("':' expected");
      std::optional<VNValue> item = parse(depth + 1);
      if (!item) return std::nullopt;
      if (!dict.emplace(std::move(*key), std::move(*item)).second) return fail("key given twice");
    } while (take(','));
    if (!take('}')) return fail("',' or '}' expected");
    return std::optional<VNValue>(std::in_place, std::move(dict));
  }

  std::optional<VNValue> array(int depth) {
    ++at_;
    VNValue::Array items;
    if (take(']')) return std::optional<VNValue>(std::in_place, std::move(items));
    do {
      std::optional<VNValue> item = parse(depth + 1);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
    } while (take(','));
    if (!take(']')) return fail("',' or ']' expected");
    return std::optional<VNValue>(std::in_place, std::move(items));
  }

  std::optional<char32_t> hex4() {
    std::uint32_t unit = 0;
    const char* first = text_.data() + at_;
    const char* last = text_.data() + std::min(at_ + 4, text_.size());
    auto [end, ec] = std::from_chars(first, last, unit, 16);
    if (ec != std::errc() || end != first + 4) return fail("four hexadecimal digits expected");
    at_ += 4;
    return unit;
  }

  // After "\u": a character, a surrogate pair, or (docs/json.md) a lone
  // U+DC80..U+DCFF standing for the byte outside UTF-8 it ends in.
  bool unicodeEscape(std::string& out) {
    std::optional<char32_t> unit = hex4();
    if (!unit) return false;
    if (*unit >= 0xD800 && *unit <= 0xDBFF) {
      std::optional<char32_t> low;
      if (!word("\\u") || !(low = hex4()) || *low < 0xDC00 || *low > 0xDFFF)
        return refuse("low surrogate expected");
      VNAppendUTF8(out, 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00));
    } else if (*unit >= 0xDC00 && *unit <= 0xDFFF && !VNUTF8IsEscapedByte(*unit)) {
      return refuse("lone surrogate");
    } else {
      VNAppendUTF8(out, *unit);
    }
    return true;
  }

  // After a backslash.
  bool escape(std::string& out) {
    static constexpr std::string_view kFrom = "\"\\/bfnrt", kTo = "\"\\/\b\f\n\r\t";
    if (at_ == text_.size()) return refuse("unterminated string");
    const char escaped = text_[at_++];
    if (size_t i = kFrom.find(escaped); i != std::string_view::npos) {
      out += kTo[i];
      return true;
    }
    return escaped == 'u' ? unicodeEscape(out) : refuse("unknown escape");
  }

  // Length of the UTF-8 character at `at_`, 0 when the bytes there are none.
  size_t characterLength() const {
    const auto lead = static_cast<unsigned char>(text_[at_]);
    const size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    std::string_view character = text_.substr(at_, length);
    return character.size() == length && VNIsValidUTF8(character) ? length : 0;
  }

  std::optional<std::string> string() {
    ++at_;
    std::string out;
    for (;;) {
      if (at_ == text_.size()) return fail("unterminated string");
      const char c = text_[at_];
      if (c == '"') {
        ++at_;
        return out;
      }
      if (static_cast<unsigned char>(c) < 0x20) return fail("control character in a string");
      if (c == '\\') {
        ++at_;
        if (!escape(out)) return std::nullopt;
        continue;
      }
      const size_t length = characterLength();
      if (length == 0) return fail("bytes that are not UTF-8");
      out.append(text_.substr(at_, length));
      at_ += length;
    }
  }

  std::optional<VNValue> number() {
    const size_t start = at_;
    if (at_ < text_.size() && text_[at_] == '-') ++at_;
    auto digits = [&] {
      size_t from = at_;
      while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
      return at_ - from;
    };
    const size_t whole = digits();
    if (whole == 0 || (whole > 1 && text_[at_ - whole] == '0')) {
      at_ = start;
      return fail("number expected");
    }
    bool integral = true;
    if (at_ < text_.size() && text_[at_] == '.') {
      ++at_;
      if (digits() == 0) return fail("digits expected after '.'");
      integral = false;
    }
    if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
      ++at_;
      if (at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-')) ++at_;
      if (digits() == 0) return fail("digits expected in the exponent");
      integral = false;
    }
    const char* first = text_.data() + start;
    const char* last = text_.data() + at_;
    std::int64_t integer = 0;
    // "-0" stays a real: an integer has no negative zero to write back.
    if (integral && std::from_chars(first, last, integer).ec == std::errc() && (integer != 0 || *first != '-'))
      return VNValue(integer);
    double real = 0;
    if (std::from_chars(first, last, real).ec != std::errc()) return fail("number out of range");
    return VNValue(real);
  }

  std::string_view text_;
  size_t at_ = 0;
  size_t failedAt_ = 0;
  const char* problem_ = nullptr;
};

}  // namespace

std::optional<VNValue> VNValue::fromJSON(std::string_view text, VNError* error, std::string_view origin) {
  Reader reader(text);
  std::optional<VNValue> value = reader.document();
  if (!value && error) {
    *error = VNError::posix(EINVAL, origin, "read JSON");
    const std::string where = origin.empty() ? "" : VNFormat(" '%s'", std::string(origin).c_str());
    error->setUserInfoValue(VNLocalizedDescriptionKey, VNValue(VNFormat("cannot read JSON%s at byte %zu: %s", where.c_str(),
                                                                        reader.failedAt(), reader.problem())));
  }
  return value;
}
