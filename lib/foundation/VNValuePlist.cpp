// Property-list reading and writing through libplist.
#include <plist/plist.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include "foundation/VNError.h"
#include "foundation/VNFileIO.h"
#include "foundation/VNValue.h"

namespace {

struct PlistFree {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistHandle = std::unique_ptr<void, PlistFree>;

struct MallocFree {
  void operator()(void* p) const { std::free(p); }
};

// Property lists nest; deeper input than this is refused rather than risk
// the stack on hostile files.
constexpr int kMaxDepth = 512;
constexpr size_t kMaxFileBytes = 256u << 20;

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
    if (!key || !toValue(item, depth + 1, value)) return false;
    dict.insert_or_assign(key.get(), std::move(value));
  }
  out = VNValue(std::move(dict));
  return true;
}

bool toValue(plist_t node, int depth, VNValue& out) {
  if (!node || depth > kMaxDepth) return false;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      out = VNValue(b != 0);
      return true;
    }
    case PLIST_UINT:
    case PLIST_UID: {
      uint64_t v = 0;
      plist_get_node_type(node) == PLIST_UINT ? plist_get_uint_val(node, &v) : plist_get_uid_val(node, &v);
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
      char* raw = nullptr;
      plist_get_node_type(node) == PLIST_STRING ? plist_get_string_val(node, &raw) : plist_get_key_val(node, &raw);
      std::unique_ptr<char, MallocFree> s(raw);
      out = VNValue(std::string(s ? s.get() : ""));
      return true;
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      out = VNValue(VNValue::Date{sec + usec / 1e6});
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

plist_t dateNode(const VNValue::Date& date) {
  double whole = std::floor(date.sinceReferenceDate);
  double limit = std::numeric_limits<int32_t>::max();
  whole = std::fmax(-limit, std::fmin(limit, whole));
  auto usec = static_cast<int32_t>(std::lround((date.sinceReferenceDate - whole) * 1e6));
  return plist_new_date(static_cast<int32_t>(whole), std::min(usec, 999999));
}

// Builds a libplist node; null for a null value anywhere in the tree.
plist_t toNode(const VNValue& value) {
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
      return plist_new_string(value.asString()->c_str());
    case VNValue::Kind::Date:
      return dateNode(*value.asDate());
    case VNValue::Kind::Data: {
      const auto& data = *value.asData();
      return plist_new_data(reinterpret_cast<const char*>(data.data()), data.size());
    }
    case VNValue::Kind::Array: {
      PlistHandle array(plist_new_array());
      for (const auto& item : *value.asArray()) {
        plist_t child = toNode(item);
        if (!child) return nullptr;
        plist_array_append_item(array.get(), child);
      }
      return array.release();
    }
    case VNValue::Kind::Dictionary: {
      PlistHandle dict(plist_new_dict());
      for (const auto& [key, item] : *value.asDictionary()) {
        plist_t child = toNode(item);
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
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) {
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
  PlistHandle root(toNode(*this));
  if (!root) {
    reportInvalid(error, {}, "write a null value as a property list");
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
