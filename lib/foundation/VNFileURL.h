#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/VNExport.h"

// Splits a path into components the library's way: a leading "/" is a
// component of its own, so is a trailing "/", and empty components between
// repeated separators are dropped. "/" has one component, "Users/" two,
// "/Users/a" three.
VN_EXPORT std::vector<std::string> VNPathComponents(std::string_view path);

// A file URL: an absolute path plus a directory marker. The path is kept
// without a trailing separator (except the root "/"); the marker decides
// whether the URL string ends in "/".
class VN_EXPORT VNFileURL {
 public:
  VNFileURL() = default;

  // A relative path is taken against the current working directory; when
  // that has no path (it was removed), the result is empty rather than a
  // guess. With no explicit marker, a path ending in "/" is a directory URL.
  static VNFileURL fileURLWithPath(std::string_view path);
  static VNFileURL fileURLWithPath(std::string_view path, bool isDirectory);
  // Parses "file://" URL strings (an empty or "localhost" host only, with
  // percent escapes); anything else gives an empty result.
  static std::optional<VNFileURL> fromURLString(std::string_view text);

  bool empty() const { return path_.empty(); }
  const std::string& path() const { return path_; }
  bool hasDirectoryPath() const { return isDirectory_; }

  // "file://" followed by the percent-escaped path, with a trailing "/" for a
  // directory URL.
  std::string absoluteString() const;
  std::string description() const { return absoluteString(); }

  std::vector<std::string> pathComponents() const { return VNPathComponents(path_); }
  std::string lastPathComponent() const;
  // Text after the last "." of the last component ("" when none, or when the
  // only "." starts the name).
  std::string pathExtension() const;
  VNFileURL URLByAppendingPathComponent(std::string_view component, bool isDirectory = false) const;
  VNFileURL URLByDeletingLastPathComponent() const;

  bool operator==(const VNFileURL&) const = default;

 private:
  std::string path_;
  bool isDirectory_ = false;
};
