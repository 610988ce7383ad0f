#include "foundation/VNValue.h"

#include <cctype>
#include <cinttypes>
#include <cmath>

#include "foundation/VNFormat.h"
#include "foundation/internal/VNDateText.h"

namespace {

constexpr double kSecondsFrom1970To2001 = 978307200.0;

bool needsQuotes(const std::string& s) {
  if (s.empty()) return true;
  for (unsigned char c : s)
    if (!(std::isalnum(c) || c == '_' || c == '.' || c == '/' || c == '-' || c >= 0x80)) return true;
  return false;
}

std::string quoted(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out + "\"";
}

void describe(const VNValue& value, int depth, bool nested, std::string& out) {
  const std::string indent(static_cast<size_t>(depth) * 4, ' ');
  const std::string inner(static_cast<size_t>(depth + 1) * 4, ' ');
  switch (value.kind()) {
    case VNValue::Kind::Null:
      out += "(null)";
      return;
    case VNValue::Kind::Boolean:
      out += *value.asBoolean() ? "1" : "0";
      return;
    case VNValue::Kind::Integer:
      out += std::to_string(*value.asInteger());
      return;
    case VNValue::Kind::Real:
      out += VNFormat("%g", *value.asReal());
      return;
    case VNValue::Kind::String: {
      const std::string& s = *value.asString();
      out += nested && needsQuotes(s) ? quoted(s) : s;
      return;
    }
    case VNValue::Kind::Date:
      out += VNDateText(*value.asDate(), "%Y-%m-%d %H:%M:%S +0000");
      return;
    case VNValue::Kind::Data: {
      const auto& data = *value.asData();
      out += VNFormat("{length = %zu, bytes = 0x", data.size());
      for (auto byte : data) out += VNFormat("%02hhx", byte);
      out += "}";
      return;
    }
    case VNValue::Kind::Array: {
      out += "(\n";
      const auto& items = *value.asArray();
      for (size_t i = 0; i < items.size(); ++i) {
        out += inner;
        describe(items[i], depth + 1, true, out);
        out += i + 1 < items.size() ? ",\n" : "\n";
      }
      out += indent + ")";
      return;
    }
    case VNValue::Kind::Dictionary:
      out += "{\n";
      for (const auto& [key, item] : *value.asDictionary()) {
        out += inner + (needsQuotes(key) ? quoted(key) : key) + " = ";
        describe(item, depth + 1, true, out);
        out += ";\n";
      }
      out += indent + "}";
      return;
  }
}

}  // namespace

VNValue::Date VNValue::Date::fromUnixTime(double seconds) {
  return Date{seconds - kSecondsFrom1970To2001};
}

double VNValue::Date::unixTime() const { return sinceReferenceDate + kSecondsFrom1970To2001; }

std::optional<std::int64_t> VNValue::asInteger() const {
  if (auto* i = std::get_if<std::int64_t>(&storage_)) return *i;
  return std::nullopt;
}

std::optional<double> VNValue::asReal() const {
  if (auto* d = std::get_if<double>(&storage_)) return *d;
  if (auto* i = std::get_if<std::int64_t>(&storage_)) return static_cast<double>(*i);
  return std::nullopt;
}

const VNValue* VNValue::find(std::string_view key) const {
  const auto* dict = asDictionary();
  if (!dict) return nullptr;
  auto found = dict->find(key);
  return found == dict->end() ? nullptr : &found->second;
}

const std::string* VNValue::findString(std::string_view key) const {
  const VNValue* item = find(key);
  return item ? item->asString() : nullptr;
}

void VNValue::set(std::string_view key, VNValue value) {
  if (isNull()) storage_ = Dictionary{};
  if (auto* dict = asDictionary()) dict->insert_or_assign(std::string(key), std::move(value));
}

std::string VNValue::description() const {
  std::string out;
  describe(*this, 0, false, out);
  return out;
}
