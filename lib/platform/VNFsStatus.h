#pragma once

#include <fcntl.h>

#include <string>
#include <utility>

#include "foundation/VNError.h"
#include "foundation/VNExport.h"

// An item named for a file-system operation: a path, relative to the
// directory descriptor `dirfd` unless it is absolute (AT_FDCWD: the current
// directory). An empty path names the item `dirfd` itself refers to, which
// may be an O_PATH descriptor. The path must outlive the call.
struct VNAtPath {
  // Implicit, so that a plain path can be passed wherever an item is named.
  VNAtPath(const char* path) : path(path) {}
  VNAtPath(const std::string& path) : path(path.c_str()) {}
  VNAtPath(int dirfd, const char* path) : dirfd(dirfd), path(path) {}

  int dirfd = AT_FDCWD;
  const char* path;
};

// The outcome of a platform file-system operation: 0 or the errno value of
// the first failure, with the step that failed and the path it failed on.
struct VN_EXPORT VNFsStatus {
  int code = 0;
  std::string step;
  std::string path;

  static VNFsStatus failure(int code, std::string step, std::string path) {
    return VNFsStatus{code, std::move(step), std::move(path)};
  }
  bool ok() const { return code == 0; }
  // "cannot <step> '<path>': <strerror>" in the POSIX domain.
  VNError error() const { return VNError::posix(code, path, step); }
};
