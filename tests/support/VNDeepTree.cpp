#include "support/VNDeepTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstdio>

#include "foundation/VNUniqueFd.h"
#include "support/VNLoopImage.h"

namespace {

[[noreturn]] void fail(const char* step) {
  std::perror(step);
  std::abort();
}

}  // namespace

VNDeepTree::VNDeepTree(std::string root, size_t depth, size_t fileEvery) : path_(root + "/d") {
  VNUniqueFd at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!at) fail("open deep tree root");
  for (size_t level = 1; level <= depth; ++level) {
    if (::mkdirat(at.get(), "d", 0755) != 0) fail("mkdirat deep tree");
    VNUniqueFd next(::openat(at.get(), "d", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!next) fail("openat deep tree");
    at = std::move(next);
    if (level % fileEvery != 0 && level != depth) continue;
    VNUniqueFd file(::openat(at.get(), "f", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file || ::write(file.get(), "x", 1) != 1) fail("write deep tree file");
    ++files_;
  }
}

// rm walks any depth within a bounded number of descriptors.
VNDeepTree::~VNDeepTree() { VNRunCommand("rm -rf '" + path_ + "'"); }

VNDescriptorLimit::VNDescriptorLimit(rlim_t soft) {
  if (::getrlimit(RLIMIT_NOFILE, &saved_) != 0) fail("getrlimit");
  rlimit lowered = saved_;
  lowered.rlim_cur = soft;
  if (::setrlimit(RLIMIT_NOFILE, &lowered) != 0) fail("setrlimit");
}

VNDescriptorLimit::~VNDescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &saved_); }
