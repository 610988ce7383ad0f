#include <sys/xattr.h>

#include "PlatformTestSupport.h"
#include "platform/VNFileFlags.h"
#include "support/VNTest.h"

using namespace VNFileFlag;

namespace {

constexpr std::uint64_t kImageBytes = 300u << 20;

std::uint32_t FlagsOf(const std::string& path) {
  std::uint32_t word = 0xdeadbeef;
  VNFsStatus status = VNFileFlags::makeDefault()->getFlags(path, &word);
  EXPECT_THAT(status, Succeeds()) << path;
  return word;
}

// Lifts the locking flags so the loop image can be unmounted and removed.
void Unlock(const std::string& path) { VNFileFlags::makeDefault()->setFlags(path, 0); }

class FileFlagsOnEach : public testing::TestWithParam<VNLoopImage::Kind> {};

// One file carrying immutable, append-only and both WARD bits: the kernel
// refuses attribute writes on immutable files, so the order of the writes
// decides whether this works at all, including changes made later while
// the file is locked.
TEST_P(FileFlagsOnEach, LockingFlagsAndWARDBitsRoundTripOnOneFile) {
  VN_MOUNT_OR_SKIP(image, GetParam(), kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string file = *image / "locked";
  VNWriteTestFile(file, "data");
  const std::uint32_t word = UserImmutable | UserAppendOnly | WARDMask | NoDump;

  ASSERT_THAT(flags->setFlags(file, word), Succeeds());
  EXPECT_EQ(FlagsOf(file), word);
  EXPECT_THAT(file, HasInodeFlags(FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL));
  EXPECT_THAT(file, HasXattr(VNFileFlagsAttributeName, "0x00180006"));
  EXPECT_NE(::unlink(file.c_str()), 0) << "immutable must hold";

  // Dropping one WARD bit while the file is locked keeps it locked.
  ASSERT_THAT(flags->setFlags(file, word & ~NoUnlink), Succeeds());
  EXPECT_EQ(FlagsOf(file), word & ~NoUnlink);
  EXPECT_THAT(file, HasInodeFlags(FS_IMMUTABLE_FL | FS_APPEND_FL));

  // Only the plain user spellings left: the attribute goes away.
  ASSERT_THAT(flags->setFlags(file, UserImmutable), Succeeds());
  EXPECT_THAT(file, LacksXattr(VNFileFlagsAttributeName));
  EXPECT_EQ(FlagsOf(file), UserImmutable);

  ASSERT_THAT(flags->setFlags(file, 0), Succeeds());
  EXPECT_EQ(FlagsOf(file), 0u);
  EXPECT_THAT(file, HasInodeFlagsExcept(0u, FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL));
  EXPECT_EQ(::unlink(file.c_str()), 0);
}

// The system spellings of immutable and append-only map to the same inode
// flags as the user ones and still read back as written; a directory works
// like a file.
TEST_P(FileFlagsOnEach, SystemSpellingsAndDirectoriesRoundTrip) {
  VN_MOUNT_OR_SKIP(image, GetParam(), kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string dir = *image / "dir";
  ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
  for (std::uint32_t word : {SystemImmutable, SystemAppendOnly | UserAppendOnly,
                             SystemImmutable | UserImmutable | Restricted, Restricted, 0x40000000u}) {
    ASSERT_THAT(flags->setFlags(dir, word), Succeeds()) << std::hex << word;
    EXPECT_EQ(FlagsOf(dir), word) << std::hex << word;
  }
  Unlock(dir);
}

INSTANTIATE_TEST_SUITE_P(, FileFlagsOnEach,
                         testing::Values(VNLoopImage::Kind::XFS, VNLoopImage::Kind::Btrfs),
                         [](const auto& info) {
                           return info.param == VNLoopImage::Kind::XFS ? "XFS" : "Btrfs";
                         });

// A symbolic link keeps its whole word in the attribute of the link itself;
// its target is never touched. Special files work the same way.
TEST(FileFlags, SymbolicLinksAndFIFOsCarryTheirOwnWord) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string target = *image / "target", link = *image / "link", fifo = *image / "fifo";
  VNWriteTestFile(target, "t");
  ASSERT_EQ(::symlink("target", link.c_str()), 0);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);

  const std::uint32_t word = SystemImmutable | WARDMask;
  for (const std::string& item : {link, fifo}) {
    ASSERT_THAT(flags->setFlags(item, word), Succeeds()) << item;
    EXPECT_EQ(FlagsOf(item), word) << item;
    EXPECT_THAT(item, HasXattr(VNFileFlagsAttributeName, "0x001a0000"));
  }
  EXPECT_EQ(FlagsOf(target), 0u);
  EXPECT_THAT(target, LacksXattr(VNFileFlagsAttributeName));
  EXPECT_THAT(target, HasInodeFlagsExcept(0u, FS_IMMUTABLE_FL));

  ASSERT_THAT(flags->setFlags(link, 0), Succeeds());
  EXPECT_THAT(link, LacksXattr(VNFileFlagsAttributeName));
  Unlock(fifo);
}

// Bad input and refusals: a mangled attribute is an error naming the item,
// never a guess; a missing item, and compression where XFS has none, fail
// with the path.
TEST(FileFlags, RefusesMangledAttributesMissingItemsAndUnsupportedFlags) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string file = *image / "file";
  VNWriteTestFile(file, "x");
  std::uint32_t word = 7;
  for (const char* bad : {"", "0x", "180000", "0x1234567890", "0xzz", "0x12 ", "-0x1"}) {
    ASSERT_EQ(::lsetxattr(file.c_str(), VNFileFlagsAttributeName, bad, std::strlen(bad), 0), 0);
    EXPECT_THAT(flags->getFlags(file, &word), FailsWith(EINVAL, file)) << '"' << bad << '"';
  }
  EXPECT_EQ(word, 7u) << "the output stays untouched on failure";
  ASSERT_EQ(::lsetxattr(file.c_str(), VNFileFlagsAttributeName, "0xFFFFFFFF", 10, 0), 0);
  EXPECT_THAT(flags->getFlags(file, &word), Succeeds());

  std::string missing = *image / "missing";
  EXPECT_THAT(flags->getFlags(missing, &word), FailsWith(ENOENT, missing));
  EXPECT_THAT(flags->setFlags(missing, Restricted), FailsWith(ENOENT, missing));

  ASSERT_EQ(::lremovexattr(file.c_str(), VNFileFlagsAttributeName), 0);
  EXPECT_THAT(flags->setFlags(file, Compressed), FailsWith(EOPNOTSUPP, file));
}

}  // namespace
