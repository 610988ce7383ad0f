#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <string>

// A chain of `depth` nested folders "d/d/d/..." below `root`, far longer than
// PATH_MAX allows to name at once, with a one-byte file "f" in every
// `fileEvery`-th folder (the deepest one included). Built and removed through
// descriptors; the destructor removes it whatever the walk left.
class VNDeepTree {
 public:
  VNDeepTree(std::string root, size_t depth, size_t fileEvery);
  ~VNDeepTree();
  VNDeepTree(const VNDeepTree&) = delete;
  VNDeepTree& operator=(const VNDeepTree&) = delete;

  const std::string& path() const { return path_; }  // the outermost folder
  size_t files() const { return files_; }

 private:
  std::string path_;
  size_t files_ = 0;
};

// Lowers the soft limit of open descriptors for the object's lifetime.
class VNDescriptorLimit {
 public:
  explicit VNDescriptorLimit(rlim_t soft);
  ~VNDescriptorLimit();
  VNDescriptorLimit(const VNDescriptorLimit&) = delete;
  VNDescriptorLimit& operator=(const VNDescriptorLimit&) = delete;

 private:
  rlimit saved_{};
};
