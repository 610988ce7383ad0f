#include "foundation/VNFileURL.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "foundation/VNFormat.h"

namespace {

// Null when the working folder has no path (removed, or out of reach).
std::optional<std::string> currentDirectory() {
  std::string buffer(4096, '\0');
  while (!::getcwd(buffer.data(), buffer.size())) {
    if (errno != ERANGE) return std::nullopt;
    buffer.resize(buffer.size() * 2);
  }
  buffer.resize(std::strlen(buffer.c_str()));
  if (buffer.empty() || buffer.front() != '/') return std::nullopt;
  return buffer;
}

// Removes repeated and trailing separators; keeps "/" for the root.
std::string tidy(std::string_view path) {
  std::string out;
  out.reserve(path.size());
  for (char c : path) {
    if (c == '/' && !out.empty() && out.back() == '/') continue;
    out += c;
  }
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

bool isUnreserved(unsigned char c) {
  return std::isalnum(c) || std::strchr("-._~/!$&'()*+,;=:@", c);
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::vector<std::string> VNPathComponents(std::string_view path) {
  std::vector<std::string> parts;
  if (path.empty()) return parts;
  if (path.front() == '/') parts.emplace_back("/");
  size_t i = 0;
  while (i < path.size()) {
    size_t next = path.find('/', i);
    if (next == std::string_view::npos) next = path.size();
    if (next > i) parts.emplace_back(path.substr(i, next - i));
    i = next + 1;
  }
  if (path.size() > 1 && path.back() == '/') parts.emplace_back("/");
  return parts;
}

VNFileURL VNFileURL::fileURLWithPath(std::string_view path) {
  return fileURLWithPath(path, !path.empty() && path.back() == '/');
}

VNFileURL VNFileURL::fileURLWithPath(std::string_view path, bool isDirectory) {
  VNFileURL url;
  if (path.empty()) return url;
  if (path.front() == '/') {
    url.path_ = tidy(path);
  } else {
    std::optional<std::string> base = currentDirectory();
    if (!base) return url;
    url.path_ = tidy(*base + "/" + std::string(path));
  }
  url.isDirectory_ = isDirectory || url.path_ == "/";
  return url;
}

std::optional<VNFileURL> VNFileURL::fromURLString(std::string_view text) {
  constexpr std::string_view scheme = "file://";
  if (text.substr(0, scheme.size()) != scheme) return std::nullopt;
  text.remove_prefix(scheme.size());
  if (text.substr(0, 9) == "localhost") text.remove_prefix(9);
  if (text.empty() || text.front() != '/') return std::nullopt;
  std::string path;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      path += text[i];
      continue;
    }
    int hi = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
    int lo = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
    if (hi < 0 || lo < 0) return std::nullopt;
    path += static_cast<char>(hi * 16 + lo);
    i += 2;
  }
  if (path.find('\0') != std::string::npos) return std::nullopt;
  return fileURLWithPath(path, path.back() == '/');
}

std::string VNFileURL::absoluteString() const {
  if (path_.empty()) return {};
  std::string out = "file://";
  for (unsigned char c : path_) out += isUnreserved(c) ? std::string(1, static_cast<char>(c)) : VNFormat("%%%02X", c);
  if (isDirectory_ && path_ != "/") out += '/';
  return out;
}

std::string VNFileURL::lastPathComponent() const {
  if (path_ == "/") return "/";
  auto slash = path_.rfind('/');
  return slash == std::string::npos ? path_ : path_.substr(slash + 1);
}

std::string VNFileURL::pathExtension() const {
  std::string name = lastPathComponent();
  auto dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0 || name == "/") return {};
  return name.substr(dot + 1);
}

VNFileURL VNFileURL::URLByAppendingPathComponent(std::string_view component, bool isDirectory) const {
  if (path_.empty()) return {};
  std::string joined = path_ == "/" ? "/" : path_ + "/";
  joined.append(component);
  return fileURLWithPath(joined, isDirectory || (!component.empty() && component.back() == '/'));
}

VNFileURL VNFileURL::URLByDeletingLastPathComponent() const {
  if (path_.empty() || path_ == "/") return *this;
  auto slash = path_.rfind('/');
  return fileURLWithPath(slash == 0 ? "/" : path_.substr(0, slash), true);
}
