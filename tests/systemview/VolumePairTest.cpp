// Volume pairs on real btrfs: the storage service, pairing, and the view of a
// system on a pair.
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include "platform/VNStorageService.h"
#include "platform/internal/VNVolumeAttributes.h"
#include "support/VNTest.h"
#include "systemview/VNSystem_FileManager_ROSV.h"
#include "systemview/VNVolumePairing.h"

extern "C" int vnTestPairFromC(const char* root, const char* role, char* mount, size_t size, int* caseSensitive);

namespace {

using ::testing::HasSubstr;

void run(const std::string& command) {
  std::string output;
  ASSERT_EQ(VNRunCommand(command, &output), 0) << command << ": " << output;
}

// An image with a pair made by VNMakeVolumePair, attached to a loop device,
// the system volume mounted read-only at dir/system and the data volume at
// dir/data.
class VolumePairTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      if (VNFileSystemTestsRequired()) FAIL() << "btrfs volume pairs need root";
      GTEST_SKIP() << "skipped: making btrfs volume pairs needs root";
    }
    image_ = dir_ / "pair.img";
    run("truncate -s 300M '" + image_ + "'");
    VNError error;
    std::optional<VNVolumePair> pair = VNMakeVolumePair({image_, false, true}, &error);
    ASSERT_TRUE(pair) << error.description();
    group_ = pair->group;
    EXPECT_FALSE(VNMakeVolumePair({image_}, &error)) << "a device holding a file system is refused";
    EXPECT_TRUE(error.isPOSIX(EEXIST));
    std::string output;
    ASSERT_EQ(VNRunCommand("losetup -f --show '" + image_ + "'", &output), 0) << output;
    device_ = output.substr(0, output.find('\n'));
    mountVolume("@system", system_, "ro,");
    mountVolume("@data", data_, "");
  }
  void TearDown() override {
    for (const std::string& mount : {system_, data_, top_}) ::umount2(mount.c_str(), MNT_DETACH);
    if (!device_.empty()) VNRunCommand("losetup -d " + device_);
  }
  void mountVolume(const std::string& name, const std::string& at, const std::string& options) {
    ::mkdir(at.c_str(), 0755);
    run("mount -o " + options + "subvol=" + name + " " + device_ + " '" + at + "'");
  }
  VNStorageVolumeRef volumeAt(const std::string& path) {
    return VNPlatformSlot<VNStorageService>::get()->volumeForPath(path);
  }

  VNTestDir dir_;
  std::string image_, device_, group_;
  std::string system_ = dir_ / "system", data_ = dir_ / "data", top_ = dir_ / "top";
};

TEST_F(VolumePairTest, PartnersAreFoundByGroupAndRoleInBothVocabulariesAndFromC) {
  VNStorageVolumeRef system = volumeAt(system_ + "/.");
  VNStorageVolumeRef data = volumeAt(data_);
  ASSERT_TRUE(system && data);
  EXPECT_EQ(system->volumeRole, "system");
  EXPECT_EQ(system->diskRole, "system-disk");
  EXPECT_EQ(system->volumeGroup, group_);
  EXPECT_TRUE(system->readOnly);
  EXPECT_EQ(system->mountPoint, system_);
  EXPECT_EQ(data->pathInContainer, "/@data");
  ASSERT_EQ(::mkdir((data_ + "/below").c_str(), 0755), 0);
  VNStorageVolumeRef below = volumeAt(data_ + "/below");
  ASSERT_TRUE(below);
  EXPECT_EQ(below->identifier, data->identifier) << "a path below a subvol= mount lies on that subvolume";
  // A device node without a driver: opening it fails, so only its folder
  // can tell the volume.
  ASSERT_EQ(::mknod((data_ + "/below/device").c_str(), S_IFCHR | 0600, makedev(240, 0)), 0);
  ASSERT_TRUE(volumeAt(data_ + "/below/device"));
  EXPECT_EQ(volumeAt(data_ + "/below/device")->identifier, data->identifier);

  for (const char* role : {"data", "data-disk"}) {
    VNStorageVolumeRef partner = getPairedVolumeWithRole(system, role);
    ASSERT_TRUE(partner) << role;
    EXPECT_EQ(partner->identifier, data->identifier);
    EXPECT_FALSE(getPairedVolumeWithRole(data, role)) << "never its own partner";
  }
  EXPECT_EQ(getPairedVolumeWithRole(data, "system-disk")->identifier, system->identifier);

  // The same through the C functions.
  char mount[4096];
  int caseSensitive = 0;
  EXPECT_EQ(vnTestPairFromC(system_.c_str(), "data-disk", mount, sizeof mount, &caseSensitive), 1);
  EXPECT_EQ(mount, data_);
  EXPECT_EQ(caseSensitive, 1);
  EXPECT_EQ(vnTestPairFromC(data_.c_str(), "data", mount, sizeof mount, &caseSensitive), 0) << "never its own partner";
  EXPECT_EQ(vnTestPairFromC((dir_ / "missing").c_str(), "data", mount, sizeof mount, &caseSensitive), -1);
  EXPECT_EQ(getPairedVolumeWithRole(volumeAt(system_).get(), nullptr), nullptr);

  // A second pair of another group in the same file system, seen through a
  // mount of the top, and a snapshot of the data volume.
  mountVolume("/", top_, "subvolid=5,");
  for (const char* name : {"other-system", "other-data"}) {
    run("btrfs -q subvolume create '" + top_ + "/" + name + "'");
    int sub = ::open((top_ + "/" + name).c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(VNWriteVolumeAttributes(sub, name == std::string("other-system") ? "system" : "data",
                                      "00000000-0000-4000-8000-000000000001"), 0);
    ::close(sub);
  }
  run("btrfs -q subvolume snapshot '" + data_ + "' '" + top_ + "/data-snapshot'");
  VNStorageVolumeRef otherData = volumeAt(top_ + "/other-data");
  EXPECT_EQ(getPairedVolumeWithRole(otherData, "system")->pathInContainer, "/other-system");
  EXPECT_EQ(getPairedVolumeWithRole(data, "system")->pathInContainer, "/@system");
  EXPECT_EQ(volumeAt(top_ + "/data-snapshot")->diskRole, "snapshot-disk");
  EXPECT_TRUE(isCaseSensitive(system));
}

TEST_F(VolumePairTest, ViewOfAPairAnswersFromTheRightVolume) {
  ::mkdir((data_ + "/Users").c_str(), 0755);
  ASSERT_EQ(::symlink("nowhere", (data_ + "/dangling").c_str()), 0);
  VNLogCapture capture(dir_ / "log");
  auto onSystem = VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(
      VNFileURL::fileURLWithPath(system_, true));
  auto* view = dynamic_cast<VNSystem_FileManager_ROSV*>(onSystem.get());
  ASSERT_NE(view, nullptr);
  EXPECT_TRUE(view->pointedAtMountedROSVVolume());
  EXPECT_FALSE(view->pointedAtDataVolume());
  EXPECT_EQ(view->userContentRoot(), VNFolderURL(data_));
  EXPECT_EQ(view->userHomeRoot(), VNFolderURL(system_ + "/Users")) << "the home root is below the system's root";
  bool exists = false;
  EXPECT_EQ(view->pathToRemoteFile(VNFileURL::fileURLWithPath("/Users"), &exists, true)->path(), data_ + "/Users");
  EXPECT_TRUE(exists);
  view->pathToRemoteFile(VNFileURL::fileURLWithPath("/dangling"), &exists, true);
  EXPECT_TRUE(exists) << "a dangling link counts as present";
  EXPECT_EQ(view->pathToRemoteFile(VNFileURL::fileURLWithPath("/Library/Preferences/x.plist"), nullptr, true)->path(),
            system_ + "/Library/Preferences/x.plist");
  EXPECT_THAT(capture.systemLog().entries().back().text,
              HasSubstr("with dv: (" + data_ + ") and sv: (" + system_ + ")"));

  auto onData = VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(
      VNFileURL::fileURLWithPath(data_, true));
  auto* dataView = dynamic_cast<VNSystem_FileManager_ROSV*>(onData.get());
  ASSERT_NE(dataView, nullptr);
  EXPECT_TRUE(dataView->pointedAtDataVolume());
  EXPECT_EQ(dataView->pathToRemoteFile(VNFileURL::fileURLWithPath("/Library/x"), nullptr, true)->path(),
            data_ + "/Library/x");

  ASSERT_EQ(::umount2(data_.c_str(), 0), 0);
  auto withoutData = VNSystem_FileManager_ROSV::initAtRoot(VNFileURL::fileURLWithPath(system_, true));
  ASSERT_NE(withoutData, nullptr);
  EXPECT_FALSE(withoutData->dataVolumeMount());
  exists = true;
  EXPECT_FALSE(withoutData->pathToRemoteFile(VNFileURL::fileURLWithPath("/Users"), &exists, true));
  EXPECT_FALSE(exists);
  EXPECT_TRUE(withoutData->pathToRemoteFile(VNFileURL::fileURLWithPath("/System/Library"), nullptr, true));
  EXPECT_FALSE(withoutData->userContentRoot());
  EXPECT_THAT(capture.systemLog().entries().back().text, HasSubstr("Returning NIL userContent root!"));
  VNStorageVolumeRef unmounted = getPairedVolumeWithRole(volumeAt(system_), "data");
  ASSERT_TRUE(unmounted) << "an unmounted partner is still found";
  EXPECT_FALSE(unmounted->mountPoint);
}

TEST(VolumeRoles, PathsOffBtrfsHaveNoRoleAndGarbageIsNoRole) {
  if (::geteuid() != 0 && !VNFileSystemTestsRequired()) GTEST_SKIP() << "skipped: trusted.* attributes need root";
  VN_MOUNT_OR_SKIP(ext4, VNLoopImage::Kind::Ext4, 64 << 20);
  VNTestDir dir;
  std::string tmpfs = dir / "tmpfs";
  ASSERT_EQ(::mkdir(tmpfs.c_str(), 0755), 0);
  ASSERT_EQ(::mount("tmpfs", tmpfs.c_str(), "tmpfs", 0, "size=1m"), 0) << std::strerror(errno);
  std::shared_ptr<void> unmount(nullptr, [&](void*) { ::umount2(tmpfs.c_str(), MNT_DETACH); });
  // Role attributes on a file system that is not btrfs never give a role.
  for (auto [path, type] : {std::pair{ext4->mountPoint(), "ext4"}, {tmpfs, "tmpfs"}}) {
    ASSERT_EQ(::setxattr(path.c_str(), VNStorage::kRoleAttribute, "system", 6, 0), 0) << path;
    VNStorageVolumeRef plain = VNPlatformSlot<VNStorageService>::get()->volumeForPath(path);
    ASSERT_TRUE(plain) << path;
    EXPECT_EQ(plain->diskType, type);
    EXPECT_FALSE(plain->isSubvolume);
    EXPECT_FALSE(plain->volumeRole);
    EXPECT_TRUE(isCaseSensitive(plain));
    EXPECT_FALSE(getPairedVolumeWithRole(plain, "data"));
    EXPECT_FALSE(VNSystem_FileManager_ROSV::isRootROSV(VNFileURL::fileURLWithPath(path, true)));
  }
  EXPECT_FALSE(VNPlatformSlot<VNStorageService>::get()->volumeForPath(dir / "missing"));
  EXPECT_EQ(VNParseVolumeRole("system"), "system");
  for (const char* garbage : {"", "System", "system\n", "data ", "snapshot"})
    EXPECT_FALSE(VNParseVolumeRole(garbage)) << garbage;
  EXPECT_TRUE(VNParseVolumeGroup("0a1b2c3d-0000-4000-8000-00000000abcd"));
  for (const char* garbage : {"0A1B2C3D-0000-4000-8000-00000000ABCD", "0a1b2c3d000004000800000000000abcd",
                              "0a1b2c3d-0000-4000-8000-00000000abc", "0a1b2c3d-0000-4000-8000-00000000abcg"})
    EXPECT_FALSE(VNParseVolumeGroup(garbage)) << garbage;
}

}  // namespace
