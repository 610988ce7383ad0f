// Installations whose outcome depends on the file system: inode flags, file
// capabilities and compression, on loop-mounted images.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/stat.h>

#include <filesystem>

#include "datatemplate/VNUDataTemplateUtilities.h"
#include "support/VNFsMatchers.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace fs = std::filesystem;

namespace {

VNFileURL folder(const std::string& path) { return VNFileURL::fileURLWithPath(path, true); }

std::string quoted(const std::string& path) { return "'" + path + "'"; }

// A template with a receipts folder and a shared users' folder below
// `system`, and an empty data volume root `data`.
struct Volumes {
  Volumes(const std::string& systemRoot, const std::string& dataRoot)
      : system(systemRoot), data(dataRoot), tmpl(systemRoot + "/System/Library/Templates/Data") {
    fs::create_directories(tmpl + "/Users/Shared");
    fs::create_directories(tmpl + "/Library/Veltra/System/Library/Receipts");
    fs::create_directories(data);
  }

  bool install(VNError* error) {
    return VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(folder(system), folder(data), error);
  }

  std::string system, data, tmpl;
};

class InstallOnXfs : public ::testing::Test {
 protected:
  VNTestDir logDir;
  VNLogCapture capture{logDir / "migration.log"};
};

}  // namespace

// Immutable and append-only items of the template, and of what an earlier
// run left in the temporary folder, stop no installation, the first or any
// later one, and keep their flags where they are laid down.
TEST_F(InstallOnXfs, LockedItemsInstallAgainAndAgain) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  Volumes volumes(*image / "system", *image / "data");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/.lock", "l");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/journal", "j");
  ASSERT_EQ(VNRunCommand("chattr +i " + quoted(volumes.tmpl + "/Users/Shared/.lock")), 0);
  ASSERT_EQ(VNRunCommand("chattr +a " + quoted(volumes.tmpl + "/Users/Shared/journal")), 0);
  ASSERT_EQ(VNRunCommand("chattr +i " + quoted(volumes.tmpl + "/Library")), 0);
  fs::create_directories(volumes.data + "/.DTemplateInstantiation/left");
  VNWriteTestFile(volumes.data + "/.DTemplateInstantiation/left/over", "o");
  ASSERT_EQ(VNRunCommand("chattr +i " + quoted(volumes.data + "/.DTemplateInstantiation/left/over") + " " +
                         quoted(volumes.data + "/.DTemplateInstantiation/left")), 0);
  for (int run = 1; run <= 3; ++run) {
    VNError error;
    ASSERT_TRUE(volumes.install(&error)) << "run " << run << ": " << error.description();
    EXPECT_FALSE(fs::exists(volumes.data + "/.DTemplateInstantiation")) << "run " << run;
    EXPECT_THAT(volumes.data + "/Users/Shared/.lock", HasInodeFlags(FS_IMMUTABLE_FL)) << "run " << run;
    EXPECT_THAT(volumes.data + "/Users/Shared/journal", HasInodeFlags(FS_APPEND_FL)) << "run " << run;
    EXPECT_THAT(volumes.data + "/Library", HasInodeFlags(FS_IMMUTABLE_FL)) << "run " << run;
  }
  VNRunCommand("chattr -R -i -a " + quoted(image->mountPoint()) + " 2>/dev/null");
}

// A user's immutable file at a template path, and an immutable folder of the
// user's where the template has a file, are kept, flags and all, and the
// template's items take their places; the next installation succeeds too.
TEST_F(InstallOnXfs, LockedUserItemsAreKeptAndReplaced) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  Volumes volumes(*image / "system", *image / "data");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/note", "template");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/board", "template");
  fs::create_directories(volumes.data + "/Users/Shared/board");
  VNWriteTestFile(volumes.data + "/Users/Shared/note", "the user's note");
  ASSERT_EQ(VNRunCommand("chattr +i " + quoted(volumes.data + "/Users/Shared/note") + " " +
                         quoted(volumes.data + "/Users/Shared/board")), 0);
  for (int run = 1; run <= 2; ++run) {
    VNError error;
    ASSERT_TRUE(volumes.install(&error)) << "run " << run << ": " << error.description();
    EXPECT_EQ(VNReadTestFile(volumes.data + "/Users/Shared/note"), "template") << "run " << run;
    EXPECT_EQ(VNReadTestFile(volumes.data + "/Users/Shared/board"), "template") << "run " << run;
  }
  std::vector<fs::path> runs(fs::directory_iterator(volumes.data + "/.DTemplateReplacedItems"), {});
  ASSERT_EQ(runs.size(), 1u) << "the second run replaced only the template's own items";
  EXPECT_EQ(VNReadTestFile(runs[0] / "Users/Shared/note"), "the user's note");
  EXPECT_THAT(runs[0] / "Users/Shared/note", HasInodeFlags(FS_IMMUTABLE_FL));
  EXPECT_THAT(runs[0] / "Users/Shared/board", HasInodeFlags(FS_IMMUTABLE_FL));
  VNRunCommand("chattr -R -i -a " + quoted(image->mountPoint()) + " 2>/dev/null");
}

// Forcing sets owner, mode, times and flags; it leaves a file's capability,
// which Linux drops on any chown, where the owner does not change.
TEST_F(InstallOnXfs, ForcingKeepsFileCapabilities) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  Volumes volumes(*image / "system", *image / "data");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/pinger", "p", 0755);
  ASSERT_EQ(VNRunCommand("setcap cap_net_raw+ep " + quoted(volumes.tmpl + "/Users/Shared/pinger")), 0);
  VNError error;
  ASSERT_TRUE(volumes.install(&error)) << error.description();
  std::string capability;
  ASSERT_EQ(VNRunCommand("getcap " + quoted(volumes.data + "/Users/Shared/pinger"), &capability), 0);
  EXPECT_THAT(capability, ::testing::HasSubstr("cap_net_raw"));
}

// A compressed template file on btrfs installed onto XFS, which cannot
// compress: forcing drops the compressed flag as the copy does.
TEST_F(InstallOnXfs, CompressedTemplateFromBtrfs) {
  VN_MOUNT_OR_SKIP(systemImage, VNLoopImage::Kind::Btrfs, 300u << 20);
  VN_MOUNT_OR_SKIP(dataImage, VNLoopImage::Kind::XFS, 300u << 20);
  Volumes volumes(systemImage->mountPoint(), *dataImage / "data");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/packed", std::string(100000, 'z'));
  ASSERT_EQ(VNRunCommand("chattr +c " + quoted(volumes.tmpl + "/Users/Shared/packed")), 0);
  VNError error;
  ASSERT_TRUE(volumes.install(&error)) << error.description();
  EXPECT_EQ(VNReadTestFile(volumes.data + "/Users/Shared/packed"), std::string(100000, 'z'));
}
