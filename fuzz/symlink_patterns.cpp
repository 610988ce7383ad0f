// Fuzzes the symlink-pattern manifest reader, the matcher and the link text.
// Checks that can fail: reading in two pieces gives the lists read at once;
// every pattern is a non-empty C string of at most 1024 bytes without a
// newline; a file pattern never ends in "/"; writing the lists back out as a
// manifest and reading that gives the same lists; the indexed pattern set
// answers as fnmatch over the list; a link text stays inside its buffer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNSymlinkPatterns.h"

namespace {

constexpr std::size_t kMaxInput = 64 * 1024;

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "check failed: %s\n", what);
  std::abort();
}

VNSymlinkPatternReader read(std::string_view manifest, std::size_t cut) {
  VNSymlinkPatternReader reader;
  reader.feed(manifest.substr(0, cut));
  reader.feed(manifest.substr(cut));
  reader.finish();
  return reader;
}

void checkPattern(const std::string& pattern) {
  check(!pattern.empty(), "pattern is empty");
  check(pattern.size() <= VNSymlinkPatternReader::kMaxLineBytes, "pattern is longer than a line");
  check(pattern.find('\n') == std::string::npos, "pattern holds a newline");
  check(pattern.find('\0') == std::string::npos, "pattern holds a NUL");
  check(!VNIsEmptyTemplatePath(pattern), "pattern names nothing");
}

std::string writeBack(const VNSymlinkPatternReader& reader) {
  std::string manifest;
  for (const std::string& pattern : reader.filePatterns()) manifest += pattern + "\n";
  for (const std::string& pattern : reader.directoryPatterns()) manifest += pattern + "/\n";
  return manifest;
}

// The indexed set answers as fnmatch over the list does, for `path` and for
// paths made from the patterns themselves (which hit the index). Only the
// first patterns take part, to keep the quadratic reference quick.
void checkSetMatchesList(const std::vector<std::string>& all, const char* path) {
  constexpr std::size_t kMostPatterns = 64;
  std::vector<std::string> patterns(all.begin(), all.begin() + std::min(all.size(), kMostPatterns));
  VNSymlinkPatternSet set(patterns);
  auto same = [&](const std::string& probe) {
    check(set.matches(probe.c_str()) == VNMatchesSymlinkPattern(patterns, probe.c_str()),
          "pattern set and list disagree");
  };
  same(path);
  for (const std::string& pattern : patterns) {
    std::string folder = pattern.ends_with("/**") ? pattern.substr(0, pattern.size() - 3) : pattern;
    for (const std::string& probe : {pattern, folder, folder + "/", folder + "/x", folder + "/x/y"})
      same(probe.substr(0, probe.find('\0')));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMaxInput) return 0;
  std::string_view manifest(reinterpret_cast<const char*>(data), size);
  VNSymlinkPatternReader whole = read(manifest, manifest.size());
  std::size_t cut = size ? data[0] % (size + 1) : 0;
  VNSymlinkPatternReader pieces = read(manifest, cut);
  check(pieces.filePatterns() == whole.filePatterns(), "file patterns depend on the pieces");
  check(pieces.directoryPatterns() == whole.directoryPatterns(), "directory patterns depend on the pieces");

  for (const std::string& pattern : whole.filePatterns()) {
    checkPattern(pattern);
    check(pattern.back() != '/', "file pattern ends in a slash");
    check(pattern.front() != '#', "comment taken as a pattern");
  }
  for (const std::string& pattern : whole.directoryPatterns()) {
    checkPattern(pattern);
    check(pattern.front() != '#', "comment taken as a pattern");
  }

  // The file patterns go first when written back, so only the order between
  // the two lists changes, and each list keeps its own order.
  VNSymlinkPatternReader again = read(writeBack(whole), 0);
  check(again.filePatterns() == whole.filePatterns(), "file patterns change when written back");
  check(again.directoryPatterns() == whole.directoryPatterns(), "directory patterns change when written back");

  // The input as a template path: matched against its own patterns, and
  // turned into a link text.
  std::string path(manifest.substr(0, manifest.find('\0')));
  std::string_view stripped = VNStripTemplateRelativePath(path.c_str());
  check(stripped.data() + stripped.size() == path.c_str() + path.size(), "stripping is no suffix");
  checkSetMatchesList(whole.filePatterns(), stripped.data());
  checkSetMatchesList(whole.directoryPatterns(), stripped.data());
  char buffer[VNUDTLinkBufferSize + 1];
  std::memset(buffer, 0x7F, sizeof buffer);
  dataTemplateLinkForPath(path.c_str(), size % 2 == 0, buffer);
  check(std::memchr(buffer, '\0', VNUDTLinkBufferSize) != nullptr, "link text is not terminated");
  check(buffer[VNUDTLinkBufferSize] == 0x7F, "link text overruns its buffer");
  return 0;
}
