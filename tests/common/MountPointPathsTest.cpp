#include "common/VNStringUtilities.h"
#include "common/VNURLUtilities.h"
#include "support/VNTest.h"

using namespace VNUtilities;

namespace {

std::optional<std::string> cut(const std::string& path) { return VN_pathByRemovingMountPoint(path); }

}  // namespace

// A final link is not followed, a link in a parent is, and so is a FIFO
// opened without blocking; what cannot be reached gives null.
TEST(PathByRemovingMountPoint, RootVolumeAndFailures) {
  EXPECT_EQ(cut("/"), "");
  EXPECT_EQ(cut("/usr/bin/../lib"), "usr/lib");
  EXPECT_EQ(pathMountPoint(VNURL("/usr/lib"))->absoluteString(), "file:///");
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  ASSERT_EQ(::symlink("file", (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "dirlink").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0644), 0);
  for (const std::string& bad : {dir / "missing", dir / "file/child", dir / "link", std::string(),
                                 std::string("/usr\0/lib", 9), "/" + std::string(PATH_MAX + 1, 'x'), std::string("\xC3(")})
    EXPECT_EQ(cut(bad), std::nullopt) << bad;
  EXPECT_EQ(pathMountPoint(VNURL(dir / "missing")), std::nullopt);
  EXPECT_EQ(cut(dir / "dirlink/file"), cut(dir / "file"));
  EXPECT_TRUE(cut(dir / "fifo").has_value());
}

// On a second volume the path is taken from its mount point, also for a
// path longer than the bytes searched for the mount path; through a bind
// mount it is the path on the volume, or below the bind mount when the
// volume's own mount is covered.
TEST(PathByRemovingMountPoint, SecondVolumeAndBindMounts) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  std::string folder = *image / "name\nwith newline";
  VNWriteTestFile(folder + "/file", "x");
  EXPECT_EQ(cut(folder + "/file"), "/name\nwith newline/file");
  EXPECT_EQ(cut(image->mountPoint()), "");
  EXPECT_EQ(pathMountPoint(VNURL(folder + "/file"))->path(), image->mountPoint());
  std::string deep = *image / "deep", relative = "/deep";
  while (deep.size() < 1500) {
    deep += "/" + std::string(100, 'd');
    relative += "/" + std::string(100, 'd');
  }
  VNMakeFolders(deep);
  EXPECT_EQ(cut(deep), relative);

  VNWriteTestFile(*image / "sub/file", "x");
  VNTestDir dir;
  std::string target = dir / "bind target\nline";
  VNMakeFolders(target);
  VNMakeFolders(dir / "cover");
  VNBindMount bind(*image / "sub", target);
  ASSERT_TRUE(bind.ok()) << "bind mount failed: " << std::strerror(errno);
  EXPECT_EQ(cut(target + "/file"), "/sub/file");
  EXPECT_EQ(cut(target), "/sub");
  EXPECT_EQ(pathMountPoint(VNURL(target + "/file"))->path(), target);
  {
    VNBindMount cover(dir / "cover", image->mountPoint());
    ASSERT_TRUE(cover.ok());
    EXPECT_EQ(cut(target + "/file"), "/file");
  }
  VNWriteTestFile(dir / "src/item", "x");
  VNMakeFolders(dir / "dst");
  VNBindMount rootBind(dir / "src", dir / "dst");
  ASSERT_TRUE(rootBind.ok());
  EXPECT_EQ(cut(dir / "dst/item"), cut(dir / "src/item")) << "a bind mount within the root volume";
}

TEST(PathByRemovingMountPoint, MountedBtrfsSubvolumeIsAVolume) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  std::string output;
  ASSERT_EQ(VNRunCommand("btrfs subvolume create '" + *image / "sv" + "'", &output), 0) << output;
  VNWriteTestFile(*image / "sv/dir/file", "x");
  EXPECT_EQ(cut(*image / "sv/dir/file"), "/sv/dir/file") << "inside the top-level mount a subvolume is a folder";
  VNTestDir dir;
  VNMakeFolders(dir / "volume");
  VNBindMount mounted(*image / "sv", dir / "volume");
  ASSERT_TRUE(mounted.ok());
  EXPECT_EQ(cut(dir / "volume/dir/file"), "/dir/file");
  EXPECT_EQ(cut(dir / "volume"), "");
}
