#pragma once

#include <cstdint>
#include <memory>
#include <string>

// A file-system image made in a temporary file and mounted through a loop
// device, for tests whose behaviour depends on the file system (clones,
// inode flags, trusted.* attributes, compression). Unmounted and deleted on
// destruction.
class VNLoopImage {
 public:
  enum class Kind { Ext4, XFS /* with reflink */, Btrfs };

  // Makes and mounts an image of `bytes` bytes. On failure returns null and
  // says why in `*whyNot` (not root, no loop device, mkfs missing...).
  static std::unique_ptr<VNLoopImage> create(Kind kind, std::uint64_t bytes, std::string* whyNot,
                                             const std::string& mkfsOptions = {});
  ~VNLoopImage();
  VNLoopImage(const VNLoopImage&) = delete;
  VNLoopImage& operator=(const VNLoopImage&) = delete;

  const std::string& mountPoint() const { return mountPoint_; }
  std::string operator/(const std::string& relative) const { return mountPoint_ + "/" + relative; }
  Kind kind() const { return kind_; }

  static const char* name(Kind kind);

 private:
  VNLoopImage(Kind kind, std::string folder) : kind_(kind), folder_(std::move(folder)) {}
  Kind kind_;
  std::string folder_;      // holds the image file and the mount point
  std::string mountPoint_;  // empty until mounted
};

// A bind mount of `source` on `target` for the object's lifetime; ok() says
// whether it was made.
class VNBindMount {
 public:
  VNBindMount(const std::string& source, const std::string& target);
  ~VNBindMount();
  VNBindMount(const VNBindMount&) = delete;
  VNBindMount& operator=(const VNBindMount&) = delete;
  bool ok() const { return !target_.empty(); }

 private:
  std::string target_;
};

// Runs a shell command; returns its exit status (-1 when it could not run).
int VNRunCommand(const std::string& command, std::string* output = nullptr);

// True when file-system tests must run rather than skip: scripts/test sets
// VARNEL_REQUIRE_FS_TESTS=1 when it runs as root, as CI does.
bool VNFileSystemTestsRequired();

// Makes a mounted image or skips the current test with the reason; when the
// tests are required, fails instead of skipping.
#define VN_MOUNT_OR_SKIP(var, kind, bytes)                                               \
  std::string var##_whyNot;                                                              \
  auto var = VNLoopImage::create((kind), (bytes), &var##_whyNot);                        \
  if (!var) {                                                                            \
    if (VNFileSystemTestsRequired())                                                     \
      FAIL() << VNLoopImage::name(kind) << " image required but unavailable: " << var##_whyNot; \
    GTEST_SKIP() << "skipped: needs a loop-mounted " << VNLoopImage::name(kind)          \
                 << " image: " << var##_whyNot;                                          \
  }
