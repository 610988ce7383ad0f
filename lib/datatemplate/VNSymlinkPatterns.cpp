// Reading the symlink-pattern manifest and matching template paths against it.
#include "datatemplate/internal/VNSymlinkPatterns.h"

#include <fnmatch.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "datatemplate/VNUDataTemplateCopier.h"

void VNSymlinkPatternReader::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    std::size_t room = kMaxLineBytes - line_.size();
    std::size_t newline = bytes.substr(0, room).find('\n');
    std::size_t take = newline == std::string_view::npos ? std::min(room, bytes.size()) : newline + 1;
    line_.append(bytes.substr(0, take));
    bytes.remove_prefix(take);
    if (newline != std::string_view::npos || line_.size() == kMaxLineBytes) takeLine();
  }
}

void VNSymlinkPatternReader::finish() {
  if (!line_.empty()) takeLine();
}

void VNSymlinkPatternReader::takeLine() {
  std::string_view line(line_);
  line = line.substr(0, line.find('\0'));
  bool isComment = !line.empty() && line.front() == '#';
  if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  bool isDirectory = !line.empty() && line.back() == '/';
  if (isDirectory) line.remove_suffix(1);
  if (!isComment && !VNIsEmptyTemplatePath(line))
    (isDirectory ? directories_ : files_).emplace_back(line);
  line_.clear();
}

std::string_view VNStripTemplateRelativePath(std::string_view path) {
  for (;;) {
    if (path.starts_with('/'))
      path.remove_prefix(1);
    else if (path.starts_with("./"))
      path.remove_prefix(2);
    else
      break;
  }
  return path == "." ? path.substr(1) : path;
}

bool VNIsEmptyTemplatePath(std::string_view text) { return VNStripTemplateRelativePath(text).empty(); }

namespace {

constexpr std::string_view kBelowFolder = "/**";

// `pattern` must be NUL-terminated at its end.
bool matchesGlob(std::string_view pattern, const char* path) {
  int flags = FNM_PATHNAME;
  if (pattern.ends_with(kBelowFolder)) flags |= FNM_LEADING_DIR;
  return ::fnmatch(pattern.data(), path, flags) == 0;
}

bool isLiteral(std::string_view text) { return text.find_first_of("*?[\\") == std::string_view::npos; }

}  // namespace

bool VNMatchesSymlinkPattern(const std::vector<std::string>& patterns, const char* path) {
  for (const std::string& pattern : patterns)
    if (matchesGlob(pattern, path)) return true;
  return false;
}

VNSymlinkPatternSet::VNSymlinkPatternSet(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {
  for (const std::string& pattern : patterns_) {
    std::string_view text(pattern);
    if (isLiteral(text)) {
      exact_.insert(text);
    } else if (text.ends_with(kBelowFolder) && isLiteral(text.substr(0, text.size() - kBelowFolder.size()))) {
      folders_.insert(text.substr(0, text.size() - kBelowFolder.size()));
    } else {
      globs_.push_back(text);
    }
  }
}

bool VNSymlinkPatternSet::matches(const char* path) const {
  std::string_view text(path);
  if (exact_.contains(text)) return true;
  // "F/**" under FNM_LEADING_DIR matches whatever follows "F/".
  if (!folders_.empty()) {
    for (std::size_t slash = text.find('/'); slash != std::string_view::npos; slash = text.find('/', slash + 1))
      if (folders_.contains(text.substr(0, slash))) return true;
  }
  for (std::string_view glob : globs_)
    if (matchesGlob(glob, path)) return true;
  return false;
}

void dataTemplateLinkForPath(const char* path, bool isDirectory, char* buffer) {
  std::string_view stripped = VNStripTemplateRelativePath(path);
  std::size_t used = 0;
  auto room = [&] { return VNUDTLinkBufferSize - std::min(used, VNUDTLinkBufferSize); };
  auto cursor = [&] { return buffer + std::min(used, VNUDTLinkBufferSize); };
  for (char c : stripped) {
    if (c != '/') continue;
    used += static_cast<std::size_t>(std::snprintf(cursor(), room(), "../"));
  }
  int printlen = std::snprintf(cursor(), room(), "%s/%s%s", "System/Library/Templates/Data",
                               stripped.data(), isDirectory ? "/" : "");
  if (printlen < 0) {
    std::fputs("data template link: assertion failed: printlen >= 0\n", stderr);
    std::abort();
  }
}
