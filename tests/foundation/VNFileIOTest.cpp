#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>

#include "foundation/VNError.h"
#include "foundation/VNFileIO.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace {

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return names;
  while (dirent* entry = ::readdir(dir))
    if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..") names.insert(entry->d_name);
  ::closedir(dir);
  return names;
}

std::string contentsOf(const std::string& path) {
  auto bytes = VNReadFile(path, 1 << 30);
  return bytes ? *bytes : "<unreadable>";
}

// Fills the file system holding `folder` until the kernel refuses more.
void fillUp(const std::string& folder) {
  int fd = ::open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  std::string block(1 << 16, 'f');
  while (::write(fd, block.data(), block.size()) > 0) {
  }
  ASSERT_EQ(errno, ENOSPC);
  ::close(fd);
}

}  // namespace

TEST(VNFileIO, WriteReplacesTheFileWithExactModeAndNoLeftovers) {
  VNTestDir dir;
  std::string path = dir / "receipt.plist";
  VNWriteTestFile(path, "old contents");
  struct stat before {};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  mode_t oldMask = ::umask(0077);
  VNError error;
  bool written = VNWriteFileAtomically(path, "new contents", 0644, &error);
  ::umask(oldMask);
  ASSERT_TRUE(written) << error.description();
  EXPECT_EQ(contentsOf(path), "new contents");
  struct stat after {};
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_EQ(after.st_mode & 07777, 0644u) << "the umask does not narrow the asked mode";
  EXPECT_NE(after.st_ino, before.st_ino) << "replaced by rename, not rewritten in place";
  EXPECT_EQ(namesIn(dir.path()), std::set<std::string>{"receipt.plist"});

  ASSERT_TRUE(VNWriteFileAtomically(dir / "empty", "", 0600));
  EXPECT_EQ(contentsOf(dir / "empty"), "");
}

TEST(VNFileIO, WriteReplacesASymbolicLinkInsteadOfFollowingIt) {
  VNTestDir dir;
  VNWriteTestFile(dir / "sentinel", "must not change");
  ASSERT_EQ(::symlink((dir / "sentinel").c_str(), (dir / "link").c_str()), 0);
  ASSERT_TRUE(VNWriteFileAtomically(dir / "link", "written"));
  EXPECT_EQ(contentsOf(dir / "sentinel"), "must not change");
  struct stat st {};
  ASSERT_EQ(::lstat((dir / "link").c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
  EXPECT_EQ(contentsOf(dir / "link"), "written");
}

TEST(VNFileIO, FailedRenameLeavesNoTemporaryFile) {
  VNTestDir dir;
  ASSERT_EQ(::mkdir((dir / "occupied").c_str(), 0755), 0);
  VNWriteTestFile(dir / "occupied/inside", "x");
  VNError error;
  EXPECT_FALSE(VNWriteFileAtomically(dir / "occupied", "data", 0644, &error));
  EXPECT_EQ(error.domain(), VNPOSIXErrorDomain);
  EXPECT_EQ(error.filePath(), dir / "occupied");
  EXPECT_EQ(namesIn(dir.path()), std::set<std::string>{"occupied"});
  EXPECT_EQ(namesIn(dir / "occupied"), std::set<std::string>{"inside"});
}

TEST(VNFileIO, MissingFolderFailsNamingTheDestination) {
  VNTestDir dir;
  VNError error;
  EXPECT_FALSE(VNWriteFileAtomically(dir / "no/such/file", "data", 0644, &error));
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir / "no/such/file");
  EXPECT_NE(error.localizedDescription().find("temporary file"), std::string::npos)
      << error.localizedDescription();
}

TEST(VNFileIO, FullFileSystemKeepsTheEarlierFileIntact) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 16u << 20);
  std::string path = *image / "state.plist";
  VNWriteTestFile(path, "earlier state");
  fillUp(image->mountPoint());
  VNError error;
  EXPECT_FALSE(VNWriteFileAtomically(path, std::string(1 << 20, 'n'), 0644, &error));
  EXPECT_TRUE(error.isPOSIX(ENOSPC)) << error.description();
  EXPECT_EQ(error.filePath(), path);
  EXPECT_EQ(contentsOf(path), "earlier state");
  std::set<std::string> expected{"filler", "lost+found", "state.plist"};
  EXPECT_EQ(namesIn(image->mountPoint()), expected);
}

TEST(VNFileIO, ReadOnlyFileSystemFailsAndChangesNothing) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 16u << 20);
  std::string path = *image / "state.plist";
  VNWriteTestFile(path, "earlier state");
  ASSERT_EQ(VNRunCommand("mount -o remount,ro " + image->mountPoint()), 0);
  VNError error;
  EXPECT_FALSE(VNWriteFileAtomically(path, "new", 0644, &error));
  EXPECT_TRUE(error.isPOSIX(EROFS)) << error.description();
  EXPECT_EQ(error.filePath(), path);
  EXPECT_EQ(contentsOf(path), "earlier state");
}

TEST(VNFileIO, ReadHonoursTheSizeLimitAndRefusesOddItems) {
  VNTestDir dir;
  VNWriteTestFile(dir / "ten", "0123456789");
  EXPECT_EQ(VNReadFile(dir / "ten", 10), "0123456789");
  VNError error;
  EXPECT_FALSE(VNReadFile(dir / "ten", 9, &error));
  EXPECT_TRUE(error.isPOSIX(EFBIG));
  EXPECT_EQ(error.filePath(), dir / "ten");

  EXPECT_FALSE(VNReadFile(dir.path(), 100, &error));
  EXPECT_TRUE(error.isPOSIX(EISDIR));

  // A FIFO without a writer would block a plain open and read forever.
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(VNReadFile(dir / "fifo", 100, &error));
  EXPECT_TRUE(error.isPOSIX(EINVAL)) << error.description();
  EXPECT_EQ(error.filePath(), dir / "fifo");

  EXPECT_FALSE(VNReadFile(dir / "absent", 100, &error));
  EXPECT_TRUE(error.isPOSIX(ENOENT));
}
