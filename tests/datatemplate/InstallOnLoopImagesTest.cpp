// Installations whose outcome depends on the file system: inode flags, file
// capabilities and compression, on loop-mounted images.
#include <linux/fs.h>

#include "datatemplate/VNUDataTemplateUtilities.h"
#include "support/VNTest.h"

namespace fs = std::filesystem;

namespace {

std::string quoted(const std::string& path) { return "'" + path + "'"; }

// A template with a receipts folder and a shared users' folder below
// `system`, and an empty data volume root `data`.
struct Volumes {
  Volumes(const std::string& systemRoot, const std::string& dataRoot)
      : system(systemRoot), data(dataRoot), tmpl(systemRoot + "/System/Library/Templates/Data") {
    VNMakeFolders(tmpl + "/Users/Shared");
    VNMakeFolders(tmpl + "/Library/Veltra/System/Library/Receipts");
    VNMakeFolders(data);
  }
  void install() {
    VNError error;
    ASSERT_TRUE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(VNFolderURL(system), VNFolderURL(data), &error))
        << error.description();
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
// later one, and keep their flags where they are laid down. A user's
// immutable file at a template path, and an immutable folder of the user's
// where the template has a file, are kept, flags and all. Forcing leaves a
// file's capability, which Linux drops on any chown.
TEST_F(InstallOnXfs, LockedItemsAndCapabilitiesInstallAgainAndAgain) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  Volumes volumes(*image / "system", *image / "data");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/.lock", "l");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/journal", "j");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/note", "template");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/board", "template");
  VNWriteTestFile(volumes.tmpl + "/Users/Shared/pinger", "p", 0755);
  VNWriteTestFile(volumes.data + "/Users/Shared/note", "the user's note");
  VNMakeFolders(volumes.data + "/Users/Shared/board");
  VNWriteTestFile(volumes.data + "/.DTemplateInstantiation/left/over", "o");
  const std::string left = volumes.data + "/.DTemplateInstantiation/left";
  ASSERT_EQ(VNRunCommand("setcap cap_net_raw+ep " + quoted(volumes.tmpl + "/Users/Shared/pinger")), 0);
  ASSERT_EQ(VNRunCommand("chattr +i " + quoted(volumes.tmpl + "/Users/Shared/.lock") + " " + quoted(volumes.tmpl + "/Library") +
                         " " + quoted(left + "/over") + " " + quoted(left) + " " + quoted(volumes.data + "/Users/Shared/note") +
                         " " + quoted(volumes.data + "/Users/Shared/board")), 0);
  ASSERT_EQ(VNRunCommand("chattr +a " + quoted(volumes.tmpl + "/Users/Shared/journal")), 0);
  for (int run = 1; run <= 3; ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    volumes.install();
    EXPECT_FALSE(fs::exists(volumes.data + "/.DTemplateInstantiation"));
    EXPECT_THAT(volumes.data + "/Users/Shared/.lock", HasInodeFlags(FS_IMMUTABLE_FL));
    EXPECT_THAT(volumes.data + "/Users/Shared/journal", HasInodeFlags(FS_APPEND_FL));
    EXPECT_THAT(volumes.data + "/Library", HasInodeFlags(FS_IMMUTABLE_FL));
    EXPECT_EQ(VNReadTestFile(volumes.data + "/Users/Shared/note"), "template");
    EXPECT_EQ(VNReadTestFile(volumes.data + "/Users/Shared/board"), "template");
  }
  std::vector<fs::path> runs(fs::directory_iterator(volumes.data + "/.DTemplateReplacedItems"), {});
  ASSERT_EQ(runs.size(), 1u) << "later runs replaced only the template's own items";
  EXPECT_EQ(VNReadTestFile(runs[0] / "Users/Shared/note"), "the user's note");
  EXPECT_THAT(runs[0] / "Users/Shared/note", HasInodeFlags(FS_IMMUTABLE_FL));
  EXPECT_THAT(runs[0] / "Users/Shared/board", HasInodeFlags(FS_IMMUTABLE_FL));
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
  volumes.install();
  EXPECT_EQ(VNReadTestFile(volumes.data + "/Users/Shared/packed"), std::string(100000, 'z'));
}
