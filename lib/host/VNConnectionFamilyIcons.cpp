#include "host/VNConnectionFamilyIcons.h"

#include <string_view>

#include "foundation/VNFileIO.h"
#include "platform/VNPlatformService.h"
#include "platform/VNResources.h"
#include "platform/VNSymbolImages.h"

namespace {

constexpr std::size_t kImageLimit = 16 << 20;

std::string formatOf(std::string_view bytes) {
  if (bytes.starts_with("\x89PNG\r\n\x1a\n")) return "png";
  if (bytes.starts_with(std::string_view("II*\0", 4)) || bytes.starts_with(std::string_view("MM\0*", 4)))
    return "tiff";
  if (bytes.substr(0, 1024).find("<svg") != std::string_view::npos) return "svg";
  return {};
}

std::optional<VNImage> symbolImage(std::string_view symbol) {
  auto path = VNPlatformSlot<VNSymbolImages>::get()->pathForSymbol(symbol);
  return path ? VNImage::fromFile(*path) : std::nullopt;
}

}  // namespace

std::optional<VNImage> VNImage::fromFile(const std::string& path) {
  auto bytes = VNReadFile(path, kImageLimit);
  if (!bytes) return std::nullopt;
  std::string format = formatOf(*bytes);
  if (format.empty()) return std::nullopt;
  return VNImage{path, std::move(format), std::move(*bytes)};
}

std::optional<VNImage> VNConnectionFamilyIcons::imageForFamilyIcon(std::uint64_t code) {
  switch (code) {
    case 2:
      return symbolImage("wifi");
    case 3: {
      auto path = VNResourcePath("Wirelane.tiff", "Images");
      return path ? VNImage::fromFile(*path) : std::nullopt;
    }
    case 4:
      return symbolImage("bolt.circle.fill");
    default:
      return symbolImage("arrow.left.and.right.circle.fill");
  }
}
