#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

// The symlink-pattern manifest: a text file of lines, each a pattern for
// template items that are laid down as symbolic links. Lines longer than
// kMaxLineBytes are read as several lines; a line starting with "#" is a
// comment; one trailing newline is dropped; a remaining final "/" is dropped
// and makes the line a directory pattern; a line that is empty or made only
// of "/", "./" and a final lone "." is ignored. Nothing else is trimmed.
// Bytes after a NUL in a line are not part of the pattern, as patterns are C
// strings.
// The copier reads a manifest of at most this many bytes (some 150,000
// patterns); a larger one is ignored, as one that is not a regular file is.
inline constexpr std::uint64_t kMaxManifestBytes = 8u << 20;

class VNSymlinkPatternReader {
 public:
  static constexpr std::size_t kMaxLineBytes = 1024;

  // Consumes the next bytes of the manifest; a line may span several calls.
  void feed(std::string_view bytes);
  // Ends the manifest, taking a last line that has no newline.
  void finish();

  const std::vector<std::string>& filePatterns() const { return files_; }
  const std::vector<std::string>& directoryPatterns() const { return directories_; }

 private:
  void takeLine();

  std::string line_;
  std::vector<std::string> files_;
  std::vector<std::string> directories_;
};

// `path` less a leading run of "/" and "./"; a path that is then only "."
// becomes empty. The result is always a suffix of `path`, so a suffix of a C
// string stays NUL-terminated.
std::string_view VNStripTemplateRelativePath(std::string_view path);

// Whether a line (after its final "/" is dropped) says nothing: empty, or
// only "/", "./" and a final lone ".".
bool VNIsEmptyTemplatePath(std::string_view text);

// Whether one of `patterns`, in order, matches the already stripped `path`
// under fnmatch with FNM_PATHNAME, plus FNM_LEADING_DIR for a pattern that
// ends in "/**". Costs one fnmatch per pattern: VNSymlinkPatternSet gives the
// same answer without.
[[nodiscard]] bool VNMatchesSymlinkPattern(const std::vector<std::string>& patterns, const char* path);

// A pattern list prepared for matching many paths. A pattern without
// wildcards or escapes ("*", "?", "[", "\") matches only the path equal to
// it, and such a folder path followed by "/**" matches every path that starts
// with the folder path and a "/": both kinds are looked up by hash, so their
// number does not slow matching. Only the other patterns go through fnmatch.
class VNSymlinkPatternSet {
 public:
  explicit VNSymlinkPatternSet(std::vector<std::string> patterns);
  VNSymlinkPatternSet(const VNSymlinkPatternSet&) = delete;
  VNSymlinkPatternSet& operator=(const VNSymlinkPatternSet&) = delete;

  const std::vector<std::string>& patterns() const { return patterns_; }
  // The answer of VNMatchesSymlinkPattern(patterns(), path).
  [[nodiscard]] bool matches(const char* path) const;

 private:
  std::vector<std::string> patterns_;
  // Views into patterns_, which never changes after construction.
  std::unordered_set<std::string_view> exact_;
  std::unordered_set<std::string_view> folders_;
  std::vector<std::string_view> globs_;
};
