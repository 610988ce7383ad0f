// Property-list reading and writing through libplist.
#include <plist/plist.h>
#include <utf8proc.h>

#include <bit>
#include <cmath>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "foundation/VNError.h"
#include "foundation/VNFileIO.h"
#include "foundation/VNValue.h"
#include "foundation/internal/VNPlistDocument.h"
#include "foundation/internal/VNPlistShape.h"

namespace {

struct PlistFree {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistHandle = std::unique_ptr<void, PlistFree>;

struct MallocFree {
  void operator()(void* p) const { std::free(p); }
};

constexpr size_t kMaxFileBytes = 256u << 20;

// libplist 2.2 hands dates over only as 32-bit seconds plus unsigned
// microseconds, which loses the sign of dates just before the reference
// date and everything beyond 68 years from it. A date node serialises to
// "bplist00", the marker 0x33 and the big-endian double it holds, so the
// exact value travels through a one-node binary list instead.
constexpr size_t kDateMarkerAt = 8;
constexpr std::uint8_t kDateMarker = 0x33;

std::uint64_t bigEndianBits(const char* bytes) {
  std::uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits = bits << 8 | static_cast<std::uint8_t>(bytes[i]);
  return bits;
}

bool dateFromNode(plist_t node, VNValue::Date& out) {
  char* raw = nullptr;
  uint32_t length = 0;
  plist_to_bin(node, &raw, &length);
  std::unique_ptr<char, MallocFree> bytes(raw);
  if (!bytes || length < kDateMarkerAt + 9 ||
      static_cast<std::uint8_t>(bytes.get()[kDateMarkerAt]) != kDateMarker)
    return false;
  out.sinceReferenceDate = std::bit_cast<double>(bigEndianBits(bytes.get() + kDateMarkerAt + 1));
  return true;
}

plist_t nodeFromDate(const VNValue::Date& date) {
  PlistHandle probe(plist_new_date(0, 0));
  char* raw = nullptr;
  uint32_t length = 0;
  plist_to_bin(probe.get(), &raw, &length);
  std::unique_ptr<char, MallocFree> bytes(raw);
  if (!bytes || length < kDateMarkerAt + 9 ||
      static_cast<std::uint8_t>(bytes.get()[kDateMarkerAt]) != kDateMarker)
    return nullptr;
  auto bits = std::bit_cast<std::uint64_t>(date.sinceReferenceDate);
  for (int i = 7; i >= 0; --i, bits >>= 8)
    bytes.get()[kDateMarkerAt + 1 + i] = static_cast<char>(bits & 0xFF);
  plist_t node = nullptr;
  plist_from_bin(bytes.get(), length, &node);
  return node;
}

// Integers arrive as 64 unsigned bits. libplist marks values above the
// signed range, which a VNValue cannot hold, with a wider length that only a
// comparison against a plain node reveals; those are refused.
bool integerFromNode(plist_t node, std::int64_t& out) {
  uint64_t v = 0;
  plist_get_uint_val(node, &v);
  if (v > static_cast<uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    PlistHandle plain(plist_new_uint(v));
    if (!plist_compare_node_value(node, plain.get())) return false;
  }
  out = static_cast<std::int64_t>(v);
  return true;
}

bool toValue(plist_t node, int depth, VNValue& out);

bool arrayToValue(plist_t node, int depth, VNValue& out) {
  VNValue::Array items;
  uint32_t count = plist_array_get_size(node);
  items.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    VNValue item;
    if (!toValue(plist_array_get_item(node, i), depth + 1, item)) return false;
    items.push_back(std::move(item));
  }
  out = VNValue(std::move(items));
  return true;
}

// Property-list strings are Unicode text. libplist passes invalid UTF-8
// through on reading but cuts it short on writing, and keeps strings as C
// strings, so only valid UTF-8 without NUL is read or written.
bool isPlistText(std::string_view text) {
  const auto* at = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto left = static_cast<utf8proc_ssize_t>(text.size());
  while (left > 0) {
    utf8proc_int32_t codepoint = 0;
    utf8proc_ssize_t used = utf8proc_iterate(at, left, &codepoint);
    if (used <= 0 || codepoint == 0) return false;
    at += used;
    left -= used;
  }
  return true;
}

// Reads a string or key node. libplist's copying accessor asserts that the
// stored length equals the C length, which a hostile binary list breaks with
// an embedded NUL; the pointer accessor hands the stored length over instead,
// and such strings are refused here.
bool textFromNode(plist_t node, std::string& out) {
  if (plist_get_node_type(node) == PLIST_KEY) {
    char* raw = nullptr;
    plist_get_key_val(node, &raw);
    std::unique_ptr<char, MallocFree> key(raw);
    out = key ? key.get() : "";
    return isPlistText(out);
  }
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (!text) return false;
  out.assign(text, length);
  return isPlistText(out);
}

bool dictToValue(plist_t node, int depth, VNValue& out) {
  VNValue::Dictionary dict;
  plist_dict_iter iter = nullptr;
  plist_dict_new_iter(node, &iter);
  std::unique_ptr<void, MallocFree> iterOwner(iter);
  for (;;) {
    char* rawKey = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iter, &rawKey, &item);
    std::unique_ptr<char, MallocFree> key(rawKey);
    if (!item) break;
    VNValue value;
    if (!key || !isPlistText(key.get()) || !toValue(item, depth + 1, value)) return false;
    dict.insert_or_assign(key.get(), std::move(value));
  }
  out = VNValue(std::move(dict));
  return true;
}

bool toValue(plist_t node, int depth, VNValue& out) {
  if (!node || depth > kVNPlistMaxDepth) return false;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      out = VNValue(b != 0);
      return true;
    }
    case PLIST_UINT: {
      std::int64_t v = 0;
      if (!integerFromNode(node, v)) return false;
      out = VNValue(v);
      return true;
    }
    case PLIST_UID: {
      uint64_t v = 0;
      plist_get_uid_val(node, &v);
      out = VNValue(static_cast<std::int64_t>(v));
      return true;
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      out = VNValue(d);
      return true;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
      std::string text;
      if (!textFromNode(node, text)) return false;
      out = VNValue(std::move(text));
      return true;
    }
    case PLIST_DATE: {
      VNValue::Date date;
      if (!dateFromNode(node, date) || !std::isfinite(date.sinceReferenceDate)) return false;
      out = VNValue(date);
      return true;
    }
    case PLIST_DATA: {
      char* raw = nullptr;
      uint64_t length = 0;
      plist_get_data_val(node, &raw, &length);
      std::unique_ptr<char, MallocFree> bytes(raw);
      const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes.get());
      out = VNValue(VNValue::Data(begin, begin + (bytes ? length : 0)));
      return true;
    }
    case PLIST_ARRAY:
      return arrayToValue(node, depth, out);
    case PLIST_DICT:
      return dictToValue(node, depth, out);
    default:
      return false;
  }
}

// XML dates are ISO 8601 texts with four-digit years; libplist writes an
// empty date for anything it cannot format, which would read back as 2001.
constexpr double kFirstXMLDate = -63113904000.0;  // 0001-01-01T00:00:00Z
constexpr double kLastXMLDate = 252423993599.0;   // 9999-12-31T23:59:59Z

bool dateWritable(const VNValue::Date& date, VNValue::Format format) {
  double t = date.sinceReferenceDate;
  if (!std::isfinite(t)) return false;
  return format == VNValue::Format::Binary || (t >= kFirstXMLDate && t < kLastXMLDate + 1);
}

// Builds a libplist node; null for a null value anywhere in the tree or
// nesting deeper than libplist can take.
plist_t toNode(const VNValue& value, VNValue::Format format, int depth) {
  if (depth > kVNPlistMaxDepth) return nullptr;
  switch (value.kind()) {
    case VNValue::Kind::Null:
      return nullptr;
    case VNValue::Kind::Boolean:
      return plist_new_bool(*value.asBoolean());
    case VNValue::Kind::Integer:
      return plist_new_uint(static_cast<uint64_t>(*value.asInteger()));
    case VNValue::Kind::Real:
      return plist_new_real(*value.asReal());
    case VNValue::Kind::String:
      return isPlistText(*value.asString()) ? plist_new_string(value.asString()->c_str()) : nullptr;
    case VNValue::Kind::Date:
      return dateWritable(*value.asDate(), format) ? nodeFromDate(*value.asDate()) : nullptr;
    case VNValue::Kind::Data: {
      const auto& data = *value.asData();
      return plist_new_data(reinterpret_cast<const char*>(data.data()), data.size());
    }
    case VNValue::Kind::Array: {
      PlistHandle array(plist_new_array());
      for (const auto& item : *value.asArray()) {
        plist_t child = toNode(item, format, depth + 1);
        if (!child) return nullptr;
        plist_array_append_item(array.get(), child);
      }
      return array.release();
    }
    case VNValue::Kind::Dictionary: {
      PlistHandle dict(plist_new_dict());
      for (const auto& [key, item] : *value.asDictionary()) {
        if (!isPlistText(key)) return nullptr;
        plist_t child = toNode(item, format, depth + 1);
        if (!child) return nullptr;
        plist_dict_set_item(dict.get(), key.c_str(), child);
      }
      return dict.release();
    }
  }
  return nullptr;
}

void reportInvalid(VNError* error, std::string_view origin, const char* what) {
  VNError e = VNError::posix(EINVAL, origin, what);
  VNSetError(error, std::move(e));
}

}  // namespace

std::optional<VNValue> VNValue::fromPropertyList(std::span<const std::uint8_t> bytes,
                                                 VNError* error, std::string_view origin) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max() ||
      !VNPlistShapeWithinLimits(bytes)) {
    reportInvalid(error, origin, "read property list");
    return std::nullopt;
  }
  plist_t raw = nullptr;
  const auto* data = reinterpret_cast<const char*>(bytes.data());
  plist_from_memory(data, static_cast<uint32_t>(bytes.size()), &raw);
  PlistHandle root(raw);
  VNValue out;
  if (!root || !toValue(root.get(), 0, out)) {
    reportInvalid(error, origin, "read property list");
    return std::nullopt;
  }
  return out;
}

std::optional<VNValue> VNValue::fromPropertyListFile(const std::string& path, VNError* error) {
  auto bytes = VNReadFile(path, kMaxFileBytes, error);
  if (!bytes) return std::nullopt;
  const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes->data());
  return fromPropertyList({begin, bytes->size()}, error, path);
}

std::optional<std::string> VNValue::propertyListData(Format format, VNError* error) const {
  PlistHandle root(toNode(*this, format, 0));
  if (!root) {
    reportInvalid(error, {}, "write a null, too deeply nested, non-text or out-of-range value as a property list");
    return std::nullopt;
  }
  char* raw = nullptr;
  uint32_t length = 0;
  if (format == Format::XML)
    plist_to_xml(root.get(), &raw, &length);
  else
    plist_to_bin(root.get(), &raw, &length);
  std::unique_ptr<char, MallocFree> bytes(raw);
  if (!bytes) {
    reportInvalid(error, {}, "serialise property list");
    return std::nullopt;
  }
  return std::string(bytes.get(), length);
}

bool VNValue::writePropertyListFile(const std::string& path, Format format, VNError* error) const {
  auto bytes = propertyListData(format, error);
  return bytes && VNWriteFileAtomically(path, *bytes, 0644, error);
}

std::optional<VNPlistDocument> VNPlistDocument::parseDictionary(std::span<const std::uint8_t> bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max() || !VNPlistShapeWithinLimits(bytes))
    return std::nullopt;
  plist_t raw = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()), &raw);
  PlistHandle root(raw);
  if (!root || plist_get_node_type(raw) != PLIST_DICT) return std::nullopt;
  VNPlistDocument document;
  document.root_ = std::shared_ptr<void>(root.release(), PlistFree{});
  return document;
}

std::optional<VNValue> VNPlistDocument::find(const char* key) const {
  plist_t node = plist_dict_get_item(root_.get(), key);
  VNValue value;
  if (!node || !toValue(node, 1, value)) return std::nullopt;
  return value;
}
