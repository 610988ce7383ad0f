#pragma once

#include <sys/stat.h>

#include <set>
#include <string>

#include "foundation/VNFileURL.h"

// A fresh temporary folder for one test, removed with everything below it
// when the object goes away (immutable and append-only flags are cleared
// first so that removal cannot fail on them).
class VNTestDir {
 public:
  VNTestDir();
  ~VNTestDir();
  VNTestDir(const VNTestDir&) = delete;
  VNTestDir& operator=(const VNTestDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + relative
  std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

 private:
  std::string path_;
};

// Fixture helpers: each aborts the test binary on failure (a broken fixture
// is not a test result).

// Writes `contents` to `path`, creating or truncating it and any missing
// folder above it.
void VNWriteTestFile(const std::string& path, const std::string& contents, unsigned mode = 0644);
// Creates `path` and every missing folder above it; the last one gets `mode`.
void VNMakeFolders(const std::string& path, unsigned mode = 0755);

// The whole contents of `path`; empty when it can't be read.
std::string VNReadTestFile(const std::string& path);
// The item itself, never what a link points to.
bool VNExists(const std::string& path);
struct stat VNStatOf(const std::string& path);  // zeroed when missing
// Names in `folder` but "." and "..".
std::set<std::string> VNNamesIn(const std::string& folder);

inline VNFileURL VNURL(const std::string& path) { return VNFileURL::fileURLWithPath(path); }
inline VNFileURL VNFolderURL(const std::string& path) { return VNFileURL::fileURLWithPath(path, true); }
