#pragma once

#include <string>

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

// Writes `contents` to `path`, creating or truncating it; aborts the test
// binary on failure (a broken fixture is not a test result).
void VNWriteTestFile(const std::string& path, const std::string& contents, unsigned mode = 0644);

// The whole contents of `path`; empty when it can't be read.
std::string VNReadTestFile(const std::string& path);
