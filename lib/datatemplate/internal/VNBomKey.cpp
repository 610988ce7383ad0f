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

bool VNBomIsValidKey(std::string_view key) {
  if (key.size() > kVNBomMaxKeyBytes) return false;
  if (key.empty()) return true;
  if (key.front() != '\0') return false;
  size_t start = 1;
  for (;;) {
    size_t end = key.find('\0', start);
    std::string_view component = key.substr(start, end == std::string_view::npos ? end : end - start);
    if (component.empty() || component == "." || component == ".." ||
        component.find('/') != std::string_view::npos)
      return false;
    if (end == std::string_view::npos) return true;
    start = end + 1;
  }
}
