#include "foundation/VNFileIO.h"
#include "support/VNTest.h"

namespace {

using Names = std::set<std::string>;

// The file is replaced by rename (a new inode, never written in place or
// through a link there) with exactly the mode asked for, whatever the umask.
TEST(VNFileIO, WriteReplacesTheFileWithExactModeAndNoLeftovers) {
  VNTestDir dir;
  std::string path = dir / "receipt.plist";
  VNWriteTestFile(path, "old contents");
  VNWriteTestFile(dir / "sentinel", "must not change");
  ASSERT_EQ(::symlink((dir / "sentinel").c_str(), (dir / "link").c_str()), 0);
  const ino_t before = VNStatOf(path).st_ino;
  mode_t oldMask = ::umask(0077);
  VNError error;
  bool written = VNWriteFileAtomically(path, "new contents", 0644, &error);
  ::umask(oldMask);
  ASSERT_TRUE(written) << error.description();
  EXPECT_EQ(VNReadTestFile(path), "new contents");
  EXPECT_THAT(path, HasMode(0644));
  EXPECT_NE(VNStatOf(path).st_ino, before);
  ASSERT_TRUE(VNWriteFileAtomically(dir / "link", ""));
  EXPECT_TRUE(S_ISREG(VNStatOf(dir / "link").st_mode));
  EXPECT_EQ(VNReadTestFile(dir / "sentinel"), "must not change");
  EXPECT_EQ(VNNamesIn(dir.path()), (Names{"link", "receipt.plist", "sentinel"}));
}

// A failure names the destination and leaves no temporary file behind.
TEST(VNFileIO, FailedWritesNameTheDestinationAndLeaveNothing) {
  VNTestDir dir;
  VNWriteTestFile(dir / "occupied/inside", "x");
  VNError error;
  EXPECT_FALSE(VNWriteFileAtomically(dir / "occupied", "data", 0644, &error));
  EXPECT_EQ(error.domain(), VNPOSIXErrorDomain);
  EXPECT_EQ(error.filePath(), dir / "occupied");
  EXPECT_FALSE(VNWriteFileAtomically(dir / "no/such/file", "data", 0644, &error));
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir / "no/such/file");
  EXPECT_NE(error.localizedDescription().find("temporary file"), std::string::npos) << error.localizedDescription();
  EXPECT_EQ(VNNamesIn(dir.path()), Names{"occupied"});
  EXPECT_EQ(VNNamesIn(dir / "occupied"), Names{"inside"});
}

// A full, then read-only, file system: each failure has its errno and the
// earlier file stays whole.
TEST(VNFileIO, FullOrReadOnlyFileSystemKeepsTheEarlierFile) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 16u << 20);
  std::string path = *image / "state.plist";
  VNWriteTestFile(path, "earlier state");
  int fd = ::open((*image / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  std::string block(1 << 16, 'f');
  while (::write(fd, block.data(), block.size()) > 0) {
  }
  ASSERT_EQ(errno, ENOSPC);
  ::close(fd);
  VNError error;
  EXPECT_FALSE(VNWriteFileAtomically(path, std::string(1 << 20, 'n'), 0644, &error));
  EXPECT_TRUE(error.isPOSIX(ENOSPC)) << error.description();
  EXPECT_EQ(error.filePath(), path);
  EXPECT_EQ(VNNamesIn(image->mountPoint()), (Names{"filler", "lost+found", "state.plist"}));
  ASSERT_EQ(VNRunCommand("mount -o remount,ro " + image->mountPoint()), 0);
  EXPECT_FALSE(VNWriteFileAtomically(path, "new", 0644, &error));
  EXPECT_TRUE(error.isPOSIX(EROFS)) << error.description();
  EXPECT_EQ(VNReadTestFile(path), "earlier state");
}

TEST(VNFileIO, ReadHonoursTheSizeLimitAndRefusesOddItems) {
  VNTestDir dir;
  VNWriteTestFile(dir / "ten", "0123456789");
  EXPECT_EQ(VNReadFile(dir / "ten", 10), "0123456789");
  // A FIFO without a writer would block a plain open and read forever.
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  const std::tuple<std::string, size_t, int> failures[] = {
      {dir / "ten", 9, EFBIG}, {dir.path(), 100, EISDIR}, {dir / "fifo", 100, EINVAL}, {dir / "absent", 100, ENOENT}};
  for (const auto& [path, limit, code] : failures) {
    VNError error;
    EXPECT_FALSE(VNReadFile(path, limit, &error));
    EXPECT_TRUE(error.isPOSIX(code)) << error.description();
    EXPECT_EQ(error.filePath(), path);
  }
}

}  // namespace
