#include "common/internal/VNPathStandardization.h"

#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "foundation/VNFileURL.h"

namespace {

// Links followed in one resolution before it counts as a loop, as the kernel
// counts them.
constexpr int kMaxLinkHops = 40;

bool exists(const std::string& path) {
  struct stat item {};
  return ::lstat(path.c_str(), &item) == 0;
}

// The names in `path`, without the separators VNPathComponents reports.
std::vector<std::string> splitComponents(std::string_view path) {
  std::vector<std::string> parts = VNPathComponents(path);
  std::erase(parts, "/");
  return parts;
}

void dropLastComponent(std::string& path) {
  auto slash = path.rfind('/');
  path.erase(slash == std::string::npos ? 0 : slash);
}

std::string withoutPrivatePrefix(std::string path) {
  constexpr std::string_view prefix = "/private/";
  if (path.compare(0, prefix.size(), prefix) == 0 && path.size() > prefix.size()) {
    std::string shortened = path.substr(prefix.size() - 1);
    if (exists(shortened)) return shortened;
  }
  return path;
}

std::string rootIfEmpty(std::string path) { return path.empty() ? "/" : path; }

std::string readLink(const std::string& path, bool* ok) {
  std::string buffer(256, '\0');
  for (;;) {
    ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size());
    *ok = n >= 0;
    if (n < 0) return {};
    if (static_cast<size_t>(n) < buffer.size()) return buffer.substr(0, static_cast<size_t>(n));
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

std::string VNStandardizedPath(std::string_view path) {
  std::string out;
  for (const std::string& part : splitComponents(path)) {
    if (part == ".") continue;
    if (part == "..") {
      dropLastComponent(out);
      continue;
    }
    out += '/';
    out += part;
  }
  return withoutPrivatePrefix(rootIfEmpty(std::move(out)));
}

std::string VNResolvedPath(std::string_view path) {
  auto parts = splitComponents(path);
  std::vector<std::string> pending(parts.rbegin(), parts.rend());
  std::string resolved;
  bool missing = false;
  int hops = 0;
  while (!pending.empty()) {
    std::string name = std::move(pending.back());
    pending.pop_back();
    if (name.empty() || name == ".") continue;
    if (name == "..") {
      dropLastComponent(resolved);
      continue;
    }
    std::string candidate = resolved + "/" + name;
    struct stat item {};
    if (!missing) missing = ::lstat(candidate.c_str(), &item) != 0;
    if (missing || !S_ISLNK(item.st_mode)) {
      resolved = std::move(candidate);
      continue;
    }
    bool ok = false;
    std::string target = readLink(candidate, &ok);
    if (!ok || ++hops > kMaxLinkHops) return VNStandardizedPath(path);
    if (!target.empty() && target.front() == '/') resolved.clear();
    auto targetParts = splitComponents(target);
    pending.insert(pending.end(), targetParts.rbegin(), targetParts.rend());
  }
  return withoutPrivatePrefix(rootIfEmpty(std::move(resolved)));
}
