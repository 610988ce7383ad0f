#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// The installed icon theme's images that stand for the library's symbol
// names; the mapping and the search order are in docs/host-identity.md.
class VN_EXPORT VNSymbolImages {
 public:
  virtual ~VNSymbolImages() = default;

  // The file of the icon that stands for `symbol`, or nothing when the
  // symbol has no icon or the theme lacks it.
  virtual std::optional<std::string> pathForSymbol(std::string_view symbol) = 0;

  // Searches the themes below "/usr/share/icons".
  static std::shared_ptr<VNSymbolImages> makeDefault();
  // Searches the themes below `iconsRoot` instead, for tests.
  static std::shared_ptr<VNSymbolImages> makeForIconsRoot(std::string iconsRoot);
};
