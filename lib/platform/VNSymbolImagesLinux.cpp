#include <sys/stat.h>

#include <array>
#include <utility>

#include "platform/VNSymbolImages.h"

namespace {

// Symbol names and the freedesktop icon names that stand for them.
constexpr std::pair<std::string_view, std::string_view> kIcons[] = {
    {"wifi", "network-wireless-symbolic"},
    {"bolt.circle.fill", "uninterruptible-power-supply-symbolic"},
    {"arrow.left.and.right.circle.fill", "network-transmit-receive-symbolic"},
};

constexpr std::array<std::string_view, 2> kThemes = {"Adwaita", "hicolor"};
constexpr std::array<std::string_view, 5> kContexts = {"devices", "status", "actions", "apps", "legacy"};
constexpr std::array<std::string_view, 5> kSizes = {"64x64", "48x48", "32x32", "24x24", "16x16"};

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

class LinuxSymbolImages final : public VNSymbolImages {
 public:
  explicit LinuxSymbolImages(std::string root) : root_(std::move(root)) {}

  std::optional<std::string> pathForSymbol(std::string_view symbol) override {
    for (const auto& [name, icon] : kIcons)
      if (name == symbol) return find(std::string(icon));
    return std::nullopt;
  }

 private:
  // Scalable images first, then the largest fixed size, theme by theme.
  std::optional<std::string> find(const std::string& icon) const {
    for (std::string_view theme : kThemes) {
      const std::string base = root_ + "/" + std::string(theme) + "/";
      for (std::string_view context : kContexts)
        if (std::string path = base + "scalable/" + std::string(context) + "/" + icon + ".svg"; isRegularFile(path))
          return path;
      for (std::string_view size : kSizes)
        for (std::string_view context : kContexts)
          for (const char* suffix : {".symbolic.png", ".png"})
            if (std::string path = base + std::string(size) + "/" + std::string(context) + "/" + icon + suffix;
                isRegularFile(path))
              return path;
    }
    return std::nullopt;
  }

  std::string root_;
};

}  // namespace

std::shared_ptr<VNSymbolImages> VNSymbolImages::makeDefault() {
  return std::make_shared<LinuxSymbolImages>("/usr/share/icons");
}

std::shared_ptr<VNSymbolImages> VNSymbolImages::makeForIconsRoot(std::string iconsRoot) {
  return std::make_shared<LinuxSymbolImages>(std::move(iconsRoot));
}
