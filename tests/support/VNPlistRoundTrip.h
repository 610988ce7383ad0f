#pragma once

#include <cmath>
#include <string>

#include "foundation/VNValue.h"

// Shared by the property-list tests and the fuzz target: what a value read
// from a property list must survive.

// Equality of values as one format keeps them: NaN equals NaN, and with
// `wholeSecondDates` (XML) a date equals its whole seconds toward zero.
inline bool VNPlistSameValue(const VNValue& written, const VNValue& read, bool wholeSecondDates) {
  if (written.kind() != read.kind()) return false;
  switch (written.kind()) {
    case VNValue::Kind::Real: {
      double a = *written.asReal(), b = *read.asReal();
      return a == b || (std::isnan(a) && std::isnan(b));
    }
    case VNValue::Kind::Date: {
      double a = written.asDate()->sinceReferenceDate;
      return (wholeSecondDates ? std::trunc(a) : a) == read.asDate()->sinceReferenceDate;
    }
    case VNValue::Kind::Array: {
      const auto &a = *written.asArray(), &b = *read.asArray();
      if (a.size() != b.size()) return false;
      for (size_t i = 0; i < a.size(); ++i)
        if (!VNPlistSameValue(a[i], b[i], wholeSecondDates)) return false;
      return true;
    }
    case VNValue::Kind::Dictionary: {
      const auto &a = *written.asDictionary(), &b = *read.asDictionary();
      if (a.size() != b.size()) return false;
      for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
        if (i->first != j->first || !VNPlistSameValue(i->second, j->second, wholeSecondDates))
          return false;
      return true;
    }
    default:
      return written == read;
  }
}

// True when `value` holds a date that XML cannot carry (outside the years
// 1 to 9999); writing such a value as XML is refused.
inline bool VNPlistHasDateBeyondXML(const VNValue& value) {
  if (const auto* date = value.asDate())
    return !(date->sinceReferenceDate >= -63113904000.0 && date->sinceReferenceDate < 252423993600.0);
  if (const auto* array = value.asArray()) {
    for (const auto& item : *array)
      if (VNPlistHasDateBeyondXML(item)) return true;
  }
  if (const auto* dict = value.asDictionary()) {
    for (const auto& [key, item] : *dict)
      if (VNPlistHasDateBeyondXML(item)) return true;
  }
  return false;
}

// Writes `value` as XML and as binary and reads each back. Empty when both
// come back the same (or XML refuses a date it cannot carry), else which
// format failed and how.
inline std::string VNPlistRoundTripProblem(const VNValue& value) {
  for (auto format : {VNValue::Format::XML, VNValue::Format::Binary}) {
    const char* name = format == VNValue::Format::XML ? "XML" : "binary";
    auto bytes = value.propertyListData(format);
    if (!bytes && format == VNValue::Format::XML && VNPlistHasDateBeyondXML(value)) continue;
    if (!bytes) return std::string(name) + ": not written";
    auto read = VNValue::fromPropertyList(
        {reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()});
    if (!read) return std::string(name) + ": written but not read back:\n" + *bytes;
    if (!VNPlistSameValue(value, *read, format == VNValue::Format::XML))
      return std::string(name) + ": read back different:\n" + *bytes;
  }
  return {};
}
