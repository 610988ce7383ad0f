#include "datatemplate/internal/VNBomKey.h"

std::optional<std::string> VNBomKeyForPath(std::string_view path) {
  std::string key;
  key.reserve(path.size() + 1);
  // One pass over the bytes, as for every lookup: each slash and the end
  // close the component that starts after the previous slash.
  size_t start = 0;
  for (size_t i = 0; i <= path.size(); ++i) {
    char c = i < path.size() ? path[i] : '/';
    if (c == '\0') return std::nullopt;
    if (c != '/') continue;
    std::string_view component = path.substr(start, i - start);
    start = i + 1;
    if (component.empty() || component == ".") continue;
    if (component == "..") return std::nullopt;
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
  // One pass over the bytes: every NUL and the end close a component that
  // starts after the previous NUL. Rows are checked as they are read, so
  // this runs once for every entry a walk returns.
  size_t start = 1;
  for (size_t i = 1; i <= key.size(); ++i) {
    char c = i < key.size() ? key[i] : '\0';
    if (c == '/') return false;
    if (c != '\0') continue;
    size_t length = i - start;
    if (length == 0) return false;
    if (length <= 2 && key[start] == '.' && (length == 1 || key[start + 1] == '.')) return false;
    start = i + 1;
  }
  return true;
}
