#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/VNExport.h"

// An image as the library hands it out: the file it was loaded from, its
// format ("svg", "png" or "tiff", read from its first bytes) and its bytes.
struct VN_EXPORT VNImage {
  std::string path;
  std::string format;
  std::string bytes;

  // Loads the image file at `path`; nothing when it cannot be read, is larger
  // than 16 MiB or is none of the three formats.
  static std::optional<VNImage> fromFile(const std::string& path);
};

// Small images for connection families (docs/host-identity.md).
class VN_EXPORT VNConnectionFamilyIcons {
 public:
  VNConnectionFamilyIcons() = delete;

  // 2: the "wifi" symbol; 3: the library's "Wirelane" image, loaded anew on
  // every call; 4: the "bolt.circle.fill" symbol; any other code: the
  // "arrow.left.and.right.circle.fill" symbol. Nothing when the image cannot
  // be found or read.
  static std::optional<VNImage> imageForFamilyIcon(std::uint64_t code);
};
