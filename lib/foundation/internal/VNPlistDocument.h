#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "foundation/VNValue.h"

// A property list parsed and kept in libplist's form, for a reader that needs
// a few entries of a dictionary: only the entries asked for become VNValues.
class VNPlistDocument {
 public:
  // Parses `bytes` under the limits of VNValue::fromPropertyList; empty when
  // they are no property list or the root is no dictionary.
  static std::optional<VNPlistDocument> parseDictionary(std::span<const std::uint8_t> bytes);
  // The entry under `key`; empty when there is none or it holds a value
  // VNValue::fromPropertyList would refuse (a string that is not UTF-8 text).
  std::optional<VNValue> find(const char* key) const;

 private:
  std::shared_ptr<void> root_;
};
