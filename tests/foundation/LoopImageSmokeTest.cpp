#include <gtest/gtest.h>
#include <sys/vfs.h>

#include "support/VNLoopImage.h"

// The loop-image fixture itself: each kind mounts and is the file system it
// claims to be, so file-system tests elsewhere can trust it.
TEST(LoopImage, MountsEachKind) {
  const std::pair<VNLoopImage::Kind, long> kinds[] = {
      {VNLoopImage::Kind::Ext4, 0xEF53}, {VNLoopImage::Kind::XFS, 0x58465342},
      {VNLoopImage::Kind::Btrfs, 0x9123683E}};
  for (auto [kind, magic] : kinds) {
    VN_MOUNT_OR_SKIP(image, kind, 300u << 20);
    struct statfs fs {};
    ASSERT_EQ(::statfs(image->mountPoint().c_str(), &fs), 0);
    EXPECT_EQ(fs.f_type, magic) << VNLoopImage::name(kind);
  }
}
