#include <linux/fiemap.h>

#include "PlatformTestSupport.h"
#include "platform/VNCompression.h"
#include "platform/VNCopyItem.h"
#include "platform/VNFileFlags.h"
#include "platform/VNStorageTiers.h"
#include "support/VNExtents.h"
#include "support/VNTest.h"

namespace {

constexpr std::uint64_t kImageBytes = 300u << 20;

bool AnyExtentEncoded(const std::string& path) {
  for (std::uint32_t flags : VNExtentFlags(path))
    if (flags & FIEMAP_EXTENT_ENCODED) return true;
  return false;
}

// A compressed file copied to another btrfs volume (no clone possible) is
// marked before its data arrives, so the copy's data is stored compressed
// too; on XFS, which has no compression, the copy still succeeds, plainly.
TEST(Compression, CompressedFilesStayCompressedWhereTheFileSystemCan) {
  VN_MOUNT_OR_SKIP(from, VNLoopImage::Kind::Btrfs, kImageBytes);
  VN_MOUNT_OR_SKIP(to, VNLoopImage::Kind::Btrfs, kImageBytes);
  VN_MOUNT_OR_SKIP(xfs, VNLoopImage::Kind::XFS, kImageBytes);
  auto compression = VNCompression::makeDefault();
  std::string source = *from / "squeezed";
  VNWriteTestFile(source, "");
  ASSERT_THAT(compression->setCompressed(source, true), Succeeds());
  VNWriteTestFile(source, std::string(4 << 20, 'z'));
  ::sync();
  ASSERT_TRUE(AnyExtentEncoded(source)) << "btrfs did not compress the source";

  std::string copy = *to / "squeezed";
  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full), Succeeds());
  bool compressed = false;
  ASSERT_THAT(compression->isCompressed(copy, &compressed), Succeeds());
  EXPECT_TRUE(compressed);
  EXPECT_THAT(copy, HasInodeFlags(FS_COMPR_FL));
  EXPECT_TRUE(AnyExtentEncoded(copy)) << "the copy's data is stored uncompressed";
  std::uint32_t word = 0;
  ASSERT_THAT(VNFileFlags::makeDefault()->getFlags(copy, &word), Succeeds());
  EXPECT_EQ(word, VNFileFlag::Compressed);

  std::string plain = *xfs / "plain";
  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, plain, VNCopyOptionSet::Full), Succeeds());
  EXPECT_EQ(VNReadTestFile(plain), VNReadTestFile(source));
  EXPECT_THAT(compression->setCompressed(plain, true), FailsWith(ENOTSUP, plain));
  ASSERT_THAT(compression->isCompressed(plain, &compressed), Succeeds());
  EXPECT_FALSE(compressed);
  EXPECT_FALSE(compression->fileSystemMayCompress(plain));
  EXPECT_TRUE(compression->fileSystemMayCompress(copy));

  ASSERT_THAT(compression->setCompressed(copy, false), Succeeds());
  EXPECT_THAT(copy, HasInodeFlagsExcept(0u, FS_COMPR_FL));
  std::string fifo = *to / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_THAT(compression->isCompressed(fifo, &compressed), FailsWith(ENOTSUP, fifo));
}

// No Linux file system has storage tiers: every call says so with the path.
TEST(StorageTiers, EveryCallFailsWithENOTSUP) {
  auto tiers = VNStorageTiers::makeDefault();
  std::uint64_t flags = 5;
  EXPECT_THAT(tiers->getTierFlags("/", false, &flags), FailsWith(ENOTSUP, "/"));
  EXPECT_EQ(flags, 5u);
  EXPECT_THAT(tiers->setFastPromotion("/x", true, false), FailsWith(ENOTSUP, "/x"));
  EXPECT_THAT(tiers->setPin("/y", VNStorageTiers::Pin::Fast, false), FailsWith(ENOTSUP, "/y"));
}

}  // namespace
