#pragma once

#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "foundation/VNExport.h"

// One argument of a printf-style format. "%@" takes the description of an
// object (anything with description(), a string, or null for "(null)"); the
// C conversions take numbers, C strings and pointers as printf does.
class VN_EXPORT VNFormatArg {
 public:
  struct Object {
    std::string text;
  };

  template <std::signed_integral T>
  VNFormatArg(T value) : value_(static_cast<std::int64_t>(value)) {}
  template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>)
  VNFormatArg(T value) : value_(static_cast<std::uint64_t>(value)) {}
  VNFormatArg(bool value) : value_(static_cast<std::int64_t>(value)) {}
  VNFormatArg(double value) : value_(value) {}
  VNFormatArg(const char* value) : value_(value) {}
  VNFormatArg(const std::string& value) : value_(value.c_str()) {}
  VNFormatArg(std::nullptr_t) : value_(nullptr) {}
  VNFormatArg(const void* value) : value_(value) {}
  template <class T>
    requires requires(const T& t) {
      { t.description() } -> std::convertible_to<std::string>;
    }
  VNFormatArg(const T& object) : value_(Object{object.description()}) {}

  using Storage = std::variant<std::int64_t, std::uint64_t, double, const char*, const void*,
                               Object, std::nullptr_t>;
  const Storage& value() const { return value_; }

 private:
  Storage value_;
};

// Fills `format` from `args`. Missing arguments render as 0 or "(null)";
// unknown conversions are copied through unchanged.
VN_EXPORT std::string VNFormatArgs(std::string_view format, std::span<const VNFormatArg> args);

template <class... Args>
std::string VNFormat(std::string_view format, const Args&... args) {
  if constexpr (sizeof...(Args) == 0) {
    return VNFormatArgs(format, {});
  } else {
    const VNFormatArg list[] = {VNFormatArg(args)...};
    return VNFormatArgs(format, list);
  }
}
