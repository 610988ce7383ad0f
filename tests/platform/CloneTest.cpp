#include <sys/xattr.h>

#include "PlatformTestSupport.h"
#include "platform/VNClone.h"
#include "platform/VNCopyItem.h"
#include "platform/VNFileFlags.h"
#include "support/VNExtents.h"
#include "support/VNTest.h"

namespace {

constexpr std::uint64_t kImageBytes = 300u << 20;
constexpr std::uint64_t kFileBytes = 16u << 20;

class CloneOn : public testing::TestWithParam<VNLoopImage::Kind> {};

// The first copy costs its data; clones of it share its extents (FIEMAP
// marks them shared) and cost next to nothing, while carrying the first
// copy's metadata.
TEST_P(CloneOn, SharesExtentsAndCostsOnlyTheFirstCopy) {
  VN_MOUNT_OR_SKIP(image, GetParam(), kImageBytes);
  VNTestDir elsewhere;
  std::string source = elsewhere / "template-file";
  WritePatternFile(source, kFileBytes);
  std::string first = *image / "first", second = *image / "second", third = *image / "third";

  std::uint64_t freeAtStart = FreeBytes(image->mountPoint());
  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, first, VNCopyOptionSet::Full), Succeeds());
  ASSERT_EQ(::chmod(first.c_str(), 0640), 0);
  ASSERT_EQ(::chown(first.c_str(), 77, 88), 0);
  ASSERT_EQ(::lsetxattr(first.c_str(), "user.kind", "first", 5, 0), 0);
  ASSERT_THAT(VNFileFlags::makeDefault()->setFlags(first, VNFileFlag::NoUnlink), Succeeds());
  std::uint64_t freeAfterCopy = FreeBytes(image->mountPoint());

  auto cloner = VNClone::makeDefault();
  ASSERT_THAT(cloner->clone(first, second, /*follow=*/false), Succeeds());
  ASSERT_THAT(cloner->clone(first, third, /*follow=*/false), Succeeds());
  std::uint64_t freeAfterClones = FreeBytes(image->mountPoint());

  EXPECT_GE(freeAtStart - freeAfterCopy, kFileBytes);
  EXPECT_LT(static_cast<std::int64_t>(freeAfterCopy - freeAfterClones), 2 << 20)
      << "two clones of " << kFileBytes << " bytes took "
      << static_cast<std::int64_t>(freeAfterCopy - freeAfterClones);
  for (const std::string& path : {first, second, third})
    EXPECT_TRUE(VNAllExtentsShared(path)) << path << " does not share its extents";
  EXPECT_THAT(third, HasTimes(VNStatOf(first)));
  EXPECT_EQ(VNReadTestFile(third), VNReadTestFile(source));
  EXPECT_THAT(second, HasMode(0640));
  EXPECT_THAT(second, HasOwner(77, 88));
  EXPECT_THAT(second, HasXattr("user.kind", "first"));
  EXPECT_THAT(second, HasXattr(VNFileFlagsAttributeName, "0x00100000"));
  EXPECT_THAT(second, testing::Not(IsHardLinkOf(first)));
}

INSTANTIATE_TEST_SUITE_P(, CloneOn, testing::Values(VNLoopImage::Kind::XFS, VNLoopImage::Kind::Btrfs),
                         [](const auto& info) {
                           return info.param == VNLoopImage::Kind::XFS ? "XFS" : "Btrfs";
                         });

// Where no clone is possible the clone fails and leaves nothing behind:
// across file systems, on a file system without clones, onto an existing
// item (which stays as it was).
TEST(Clone, FailsWhereNoCloneIsPossible) {
  VN_MOUNT_OR_SKIP(xfs, VNLoopImage::Kind::XFS, kImageBytes);
  VN_MOUNT_OR_SKIP(ext4, VNLoopImage::Kind::Ext4, kImageBytes);
  auto cloner = VNClone::makeDefault();
  std::string onXfs = *xfs / "file", onExt4 = *ext4 / "file";
  VNWriteTestFile(onXfs, "xfs data");
  VNWriteTestFile(onExt4, "ext4 data");

  std::string across = *ext4 / "across";
  EXPECT_THAT(cloner->clone(onXfs, across, false), FailsWith(EXDEV, across));
  EXPECT_NE(::access(across.c_str(), F_OK), 0);
  std::string plain = *ext4 / "plain";
  EXPECT_THAT(cloner->clone(onExt4, plain, false), FailsWith(EOPNOTSUPP, plain));
  EXPECT_NE(::access(plain.c_str(), F_OK), 0);

  std::string taken = *xfs / "taken";
  VNWriteTestFile(taken, "mine");
  EXPECT_THAT(cloner->clone(onXfs, taken, false), FailsWith(EEXIST, taken));
  EXPECT_EQ(VNReadTestFile(taken), "mine");
}

// Without following, a symbolic link is laid down as the same link; with
// following, its target file is cloned.
TEST(Clone, SymbolicLinksFollowOnlyWhenAsked) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto cloner = VNClone::makeDefault();
  std::string file = *image / "file", link = *image / "link";
  VNWriteTestFile(file, "contents");
  ASSERT_EQ(::symlink("file", link.c_str()), 0);
  ASSERT_THAT(cloner->clone(link, *image / "as-link", /*follow=*/false), Succeeds());
  EXPECT_THAT(*image / "as-link", IsSymlinkTo("file"));
  ASSERT_THAT(cloner->clone(link, *image / "as-file", /*follow=*/true), Succeeds());
  EXPECT_EQ(VNReadTestFile(*image / "as-file"), "contents");
  EXPECT_TRUE(S_ISREG(VNStatOf(*image / "as-file").st_mode));
}

}  // namespace
