#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"

// The type identifier applications are tagged with; application bundles
// conform to it.
VN_EXTERN_C VN_EXPORT const char* const VNTypeIdentifierApplication;

// Resource values of an item as the bundle rules need them. An item that
// cannot be examined has none: no package flag, no directory flag, no type.
struct VNTypeResourceValues {
  std::optional<bool> isPackage;
  std::optional<bool> isDirectory;
  std::optional<std::string> typeIdentifier;
};

// The type service: which type an item is, from the table in
// docs/type-identifiers.md, and how types conform to one another.
class VN_EXPORT VNTypeService {
 public:
  virtual ~VNTypeService() = default;

  // The three values in one examination of the item at `url`, without
  // following a final symbolic link.
  virtual VNTypeResourceValues resourceValues(const VNFileURL& url) = 0;
  // Whether `type` is `parent` or conforms to it through the table.
  virtual bool typeConformsTo(std::string_view type, std::string_view parent) = 0;
  // The device-type identifier of a model code, through the table of
  // docs/device-types.md; without one, the running host's, from its chassis.
  virtual std::string deviceTypeIdentifier(std::optional<std::string_view> modelCode) = 0;
  // The readable description of a device-type identifier; empty for one
  // outside the table.
  virtual std::string deviceTypeDescription(std::string_view type) = 0;

  static std::shared_ptr<VNTypeService> makeDefault();
};
