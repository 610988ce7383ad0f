// JSON rendering of property-list values, for the command-line tool's --json.
#include <cmath>

#include "foundation/VNFormat.h"
#include "foundation/VNUTF8.h"
#include "foundation/VNValue.h"
#include "foundation/internal/VNDateText.h"

namespace {

void appendText(std::string& out, std::string_view text) {
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) out += VNFormat("\\u%04x", c);
        else out += static_cast<char>(c);
    }
  }
}

// Valid UTF-8 is written as it is; each byte outside it as the escaped lone
// surrogate that stands for it (docs/json.md), so the output is valid JSON
// and every string, file names included, maps back to its bytes.
void appendString(std::string& out, std::string_view s) {
  out += '"';
  for (size_t at = 0; at < s.size();) {
    size_t run = VNUTF8ValidLength(s.substr(at));
    appendText(out, s.substr(at, run));
    at += run;
    if (at == s.size()) break;
    auto byte = static_cast<unsigned char>(s[at++]);
    out += VNFormat("\\u%04x", static_cast<unsigned>(VNUTF8EscapedByte(byte)));
  }
  out += '"';
}

std::string base64(const VNValue::Data& data) {
  static const char table[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < data.size(); i += 3) {
    unsigned v = data[i] << 16;
    if (i + 1 < data.size()) v |= data[i + 1] << 8;
    if (i + 2 < data.size()) v |= data[i + 2];
    out += table[(v >> 18) & 63];
    out += table[(v >> 12) & 63];
    out += i + 1 < data.size() ? table[(v >> 6) & 63] : '=';
    out += i + 2 < data.size() ? table[v & 63] : '=';
  }
  return out;
}

void render(const VNValue& value, bool pretty, int depth, std::string& out) {
  const std::string newline = pretty ? "\n" : "";
  const std::string pad = pretty ? std::string(static_cast<size_t>(depth + 1) * 2, ' ') : "";
  const std::string closePad = pretty ? std::string(static_cast<size_t>(depth) * 2, ' ') : "";
  switch (value.kind()) {
    case VNValue::Kind::Null: out += "null"; return;
    case VNValue::Kind::Boolean: out += *value.asBoolean() ? "true" : "false"; return;
    case VNValue::Kind::Integer: out += std::to_string(*value.asInteger()); return;
    case VNValue::Kind::Real: {
      double d = *value.asReal();
      out += std::isfinite(d) ? VNFormat("%.17g", d) : "null";
      return;
    }
    case VNValue::Kind::String: appendString(out, *value.asString()); return;
    case VNValue::Kind::Date: appendString(out, VNDateText(*value.asDate(), "%Y-%m-%dT%H:%M:%SZ")); return;
    case VNValue::Kind::Data: appendString(out, base64(*value.asData())); return;
    case VNValue::Kind::Array: {
      const auto& items = *value.asArray();
      if (items.empty()) { out += "[]"; return; }
      out += "[" + newline;
      for (size_t i = 0; i < items.size(); ++i) {
        out += pad;
        render(items[i], pretty, depth + 1, out);
        out += (i + 1 < items.size() ? "," : "") + newline;
      }
      out += closePad + "]";
      return;
    }
    case VNValue::Kind::Dictionary: {
      const auto& dict = *value.asDictionary();
      if (dict.empty()) { out += "{}"; return; }
      out += "{" + newline;
      size_t i = 0;
      for (const auto& [key, item] : dict) {
        out += pad;
        appendString(out, key);
        out += pretty ? ": " : ":";
        render(item, pretty, depth + 1, out);
        out += (++i < dict.size() ? "," : "") + newline;
      }
      out += closePad + "}";
      return;
    }
  }
}

}  // namespace

std::string VNValue::jsonString(bool pretty) const {
  std::string out;
  render(*this, pretty, 0, out);
  return out;
}
