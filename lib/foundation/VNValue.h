#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "foundation/VNExport.h"

class VNError;

// A property-list value: null, boolean, integer, real, string, date, data,
// array or dictionary. Values are plain C++ values (copying copies); they are
// read from and written to XML and binary property lists through libplist.
class VN_EXPORT VNValue {
 public:
  enum class Kind { Null, Boolean, Integer, Real, String, Date, Data, Array, Dictionary };
  enum class Format { XML, Binary };

  // A point in time as seconds since 2001-01-01 00:00:00 UTC, the reference
  // date of property-list dates.
  struct Date {
    double sinceReferenceDate = 0;
    static Date fromUnixTime(double seconds);
    double unixTime() const;
    bool operator==(const Date&) const = default;
  };
  using Data = std::vector<std::uint8_t>;
  using Array = std::vector<VNValue>;
  using Dictionary = std::map<std::string, VNValue, std::less<>>;

  VNValue() = default;
  VNValue(bool value) : storage_(value) {}
  VNValue(int value) : storage_(std::int64_t{value}) {}
  VNValue(long value) : storage_(std::int64_t{value}) {}
  VNValue(long long value) : storage_(std::int64_t{value}) {}
  VNValue(unsigned value) : storage_(std::int64_t{value}) {}
  VNValue(unsigned long value) : storage_(static_cast<std::int64_t>(value)) {}
  VNValue(unsigned long long value) : storage_(static_cast<std::int64_t>(value)) {}
  VNValue(double value) : storage_(value) {}
  VNValue(const char* value) : storage_(std::string(value)) {}
  VNValue(std::string_view value) : storage_(std::string(value)) {}
  VNValue(std::string value) : storage_(std::move(value)) {}
  VNValue(Date value) : storage_(value) {}
  VNValue(Data value) : storage_(std::move(value)) {}
  VNValue(Array value) : storage_(std::move(value)) {}
  VNValue(Dictionary value) : storage_(std::move(value)) {}

  static VNValue array() { return VNValue(Array{}); }
  static VNValue dictionary() { return VNValue(Dictionary{}); }

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  bool isNull() const { return kind() == Kind::Null; }

  // Typed access: null or empty when the value is of another kind.
  const bool* asBoolean() const { return std::get_if<bool>(&storage_); }
  std::optional<std::int64_t> asInteger() const;
  std::optional<double> asReal() const;  // integers convert
  const std::string* asString() const { return std::get_if<std::string>(&storage_); }
  const Date* asDate() const { return std::get_if<Date>(&storage_); }
  const Data* asData() const { return std::get_if<Data>(&storage_); }
  const Array* asArray() const { return std::get_if<Array>(&storage_); }
  Array* asArray() { return std::get_if<Array>(&storage_); }
  const Dictionary* asDictionary() const { return std::get_if<Dictionary>(&storage_); }
  Dictionary* asDictionary() { return std::get_if<Dictionary>(&storage_); }

  // Dictionary lookup: null when this is no dictionary or has no such key.
  const VNValue* find(std::string_view key) const;
  // The string under `key`, or null.
  const std::string* findString(std::string_view key) const;
  // Sets `key` (turning a null value into an empty dictionary first).
  // Does nothing on a value of another kind.
  void set(std::string_view key, VNValue value);

  bool operator==(const VNValue&) const = default;

  // Text for "%@": a string is its own text; other kinds render in the
  // classic property-list text style (arrays in parentheses, dictionaries in
  // braces with "key = value;" lines, data as hexadecimal).
  std::string description() const;
  // JSON text (dates as ISO 8601 strings, data as base64 strings).
  std::string jsonString(bool pretty = false) const;

  // Parses an XML or binary property list. Bytes that are not one, that nest
  // containers deeper than 512 levels, hold an integer above the signed
  // 64-bit range or a string that is not UTF-8 text give an empty result and, when asked, a POSIX EINVAL
  // error naming `origin`. Binary lists keep dates exactly; XML dates carry
  // whole seconds.
  static std::optional<VNValue> fromPropertyList(std::span<const std::uint8_t> bytes,
                                                 VNError* error = nullptr,
                                                 std::string_view origin = {});
  static std::optional<VNValue> fromPropertyListFile(const std::string& path,
                                                     VNError* error = nullptr);
  // Parses JSON text (RFC 8259) as jsonString writes it: objects become
  // dictionaries, integral numbers within the signed 64-bit range integers,
  // other numbers reals, null the null value; a string's "\uDC80" to
  // "\uDCFF" escapes become the single bytes they stand for
  // (docs/json.md), so jsonString's output reads back to the same text.
  // Text that is not JSON, a key given twice, nesting deeper than 512
  // levels or a number beyond the range of a double gives an empty result
  // and, when asked, a POSIX EINVAL error naming `origin` and the byte
  // offset of the fault.
  static std::optional<VNValue> fromJSON(std::string_view text, VNError* error = nullptr,
                                         std::string_view origin = {});
  // Serialises this value; a null value anywhere in it, a string or key that
  // is not UTF-8 text without NUL, or nesting deeper than 512 levels cannot
  // be written (EINVAL), nor a date that is not finite or, in XML, outside
  // the years 1 to 9999. XML drops the fractions of dates (libplist writes
  // whole seconds).
  std::optional<std::string> propertyListData(Format format, VNError* error = nullptr) const;
  // Writes atomically: a temporary file beside `path`, then a rename.
  bool writePropertyListFile(const std::string& path, Format format,
                             VNError* error = nullptr) const;

 private:
  std::variant<std::monostate, bool, std::int64_t, double, std::string, Date, Data, Array,
               Dictionary>
      storage_;
};
