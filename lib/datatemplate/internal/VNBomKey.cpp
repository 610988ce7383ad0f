#include "datatemplate/internal/VNBomKey.h"

std::optional<std::string> VNBomKeyForPath(std::string_view path) {
  std::string key;
  while (!path.empty()) {
    size_t slash = path.find('/');
    std::string_view component = path.substr(0, slash);
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    if (component.empty() || component == ".") continue;
    if (component == ".." || component.find('\0') != std::string_view::npos) return std::nullopt;
    key.push_back('\0');
    key.append(component);
    if (key.size() > kVNBomMaxKeyBytes) return std::nullopt;
  }
  return key;
}

std::string VNBomPathForKey(std::string_view key) {
  if (key.empty()) return ".";
  std::string path(key.substr(1));
  for (char& c : path)
    if (c == '\0') c = '/';
  return path;
}

std::string VNBomShortNameForKey(std::string_view key) {
  if (key.empty()) return ".";
  return std::string(key.substr(key.rfind('\0') + 1));
}
