#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>

#include "common/VNStringUtilities.h"
#include "common/VNURLUtilities.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

using namespace VNUtilities;

namespace {

// A bind mount for the length of a test.
class BindMount {
 public:
  BindMount(const std::string& source, const std::string& target) : target_(target) {
    ok_ = ::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
  }
  ~BindMount() {
    if (ok_) ::umount2(target_.c_str(), MNT_DETACH);
  }
  BindMount(const BindMount&) = delete;
  BindMount& operator=(const BindMount&) = delete;
  bool ok() const { return ok_; }

 private:
  std::string target_;
  bool ok_ = false;
};

std::optional<std::string> cut(const std::string& path) { return VN_pathByRemovingMountPoint(path); }

}  // namespace

TEST(PathByRemovingMountPoint, RootVolume) {
  EXPECT_EQ(cut("/"), "");
  EXPECT_EQ(cut("/usr"), "usr");
  EXPECT_EQ(cut("/usr/bin/../lib"), "usr/lib");
  EXPECT_EQ(pathMountPoint(VNFileURL::fileURLWithPath("/usr/lib"))->absoluteString(), "file:///");
}

TEST(PathByRemovingMountPoint, FailuresGiveNull) {
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  ASSERT_EQ(::symlink("file", (dir / "link").c_str()), 0);
  EXPECT_EQ(cut(dir / "missing"), std::nullopt);
  EXPECT_EQ(cut(dir / "file/child"), std::nullopt);
  EXPECT_EQ(cut(dir / "link"), std::nullopt);  // a final link is not followed
  EXPECT_EQ(cut(""), std::nullopt);
  EXPECT_EQ(cut(std::string("/usr\0/lib", 9)), std::nullopt);
  EXPECT_EQ(cut("/" + std::string(PATH_MAX + 1, 'x')), std::nullopt);
  EXPECT_EQ(cut("\xC3("), std::nullopt);
  EXPECT_EQ(pathMountPoint(VNFileURL::fileURLWithPath(dir / "missing")), std::nullopt);
  // A link in a parent is followed; so is a FIFO opened without blocking.
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "dirlink").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0644), 0);
  EXPECT_EQ(cut(dir / "dirlink/file"), cut(dir / "file"));
  EXPECT_TRUE(cut(dir / "fifo").has_value());
}

TEST(PathByRemovingMountPoint, SecondVolume) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  std::string folder = *image / "name\nwith newline";
  ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
  VNWriteTestFile(folder + "/file", "x");
  EXPECT_EQ(cut(folder + "/file"), "/name\nwith newline/file");
  EXPECT_EQ(cut(image->mountPoint()), "");
  EXPECT_EQ(pathMountPoint(VNFileURL::fileURLWithPath(folder + "/file"))->path(), image->mountPoint());
  // The item's path grows past the bytes searched for the mount path; the
  // mount path still lies within them.
  std::string deep = *image / "deep";
  ASSERT_EQ(::mkdir(deep.c_str(), 0755), 0);
  std::string relative = "/deep";
  while (deep.size() < 1500) {
    deep += "/" + std::string(100, 'd');
    relative += "/" + std::string(100, 'd');
    ASSERT_EQ(::mkdir(deep.c_str(), 0755), 0);
  }
  EXPECT_EQ(cut(deep), relative);
}

TEST(PathByRemovingMountPoint, BindMountsShowThePathOnTheVolume) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  ASSERT_EQ(::mkdir((*image / "sub").c_str(), 0755), 0);
  VNWriteTestFile(*image / "sub/file", "x");
  VNTestDir dir;
  std::string target = dir / "bind target\nline";
  ASSERT_EQ(::mkdir(target.c_str(), 0755), 0);
  BindMount bind(*image / "sub", target);
  ASSERT_TRUE(bind.ok()) << "bind mount failed: " << std::strerror(errno);
  // Reached through the bind mount, the item is still "/sub/file" on its volume.
  EXPECT_EQ(cut(target + "/file"), "/sub/file");
  EXPECT_EQ(cut(target), "/sub");
  // pathMountPoint names the mount the path goes through.
  EXPECT_EQ(pathMountPoint(VNFileURL::fileURLWithPath(target + "/file"))->path(), target);

  // A bind mount within the root volume resolves to the path on the root volume.
  ASSERT_EQ(::mkdir((dir / "src").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "dst").c_str(), 0755), 0);
  VNWriteTestFile(dir / "src/item", "x");
  BindMount rootBind(dir / "src", dir / "dst");
  ASSERT_TRUE(rootBind.ok());
  EXPECT_EQ(cut(dir / "dst/item"), cut(dir / "src/item"));
}

TEST(PathByRemovingMountPoint, HiddenVolumeMountFallsBackToTheBindMount) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  ASSERT_EQ(::mkdir((*image / "sub").c_str(), 0755), 0);
  VNWriteTestFile(*image / "sub/file", "x");
  VNTestDir dir;
  ASSERT_EQ(::mkdir((dir / "bind").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "cover").c_str(), 0755), 0);
  BindMount bind(*image / "sub", dir / "bind");
  ASSERT_TRUE(bind.ok());
  {
    // Cover the volume's own mount point: the whole volume is out of sight.
    BindMount cover(dir / "cover", image->mountPoint());
    ASSERT_TRUE(cover.ok());
    EXPECT_EQ(cut(dir / "bind/file"), "/file");
  }
  EXPECT_EQ(cut(dir / "bind/file"), "/sub/file");
}

TEST(PathByRemovingMountPoint, MountedBtrfsSubvolumeIsAVolume) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  std::string output;
  ASSERT_EQ(VNRunCommand("btrfs subvolume create '" + *image / "sv" + "'", &output), 0) << output;
  ASSERT_EQ(::mkdir((*image / "sv/dir").c_str(), 0755), 0);
  VNWriteTestFile(*image / "sv/dir/file", "x");
  // Inside the top-level subvolume's mount, the subvolume is a folder.
  EXPECT_EQ(cut(*image / "sv/dir/file"), "/sv/dir/file");
  VNTestDir dir;
  ASSERT_EQ(::mkdir((dir / "volume").c_str(), 0755), 0);
  BindMount mounted(*image / "sv", dir / "volume");
  ASSERT_TRUE(mounted.ok());
  // Mounted on its own, the subvolume is the volume the path is taken on.
  EXPECT_EQ(cut(dir / "volume/dir/file"), "/dir/file");
  EXPECT_EQ(cut(dir / "volume"), "");
}
