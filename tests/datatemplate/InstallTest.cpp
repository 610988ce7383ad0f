#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "platform/VNFileFlags.h"
#include "platform/VNShove.h"
#include "platform/VNVolumeLock.h"
#include "support/VNDescribeAtPath.h"
#include "support/VNExtents.h"
#include "support/VNTest.h"

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;
using Level = VNSystemLog::Level;

namespace {

constexpr const char* kReceipt = "/Library/Veltra/System/Library/Receipts/org.varnel.files.data-template.plist";

// A system volume with a small template and a data volume that already
// holds a user's files, side by side below one folder.
class InstallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    VNWriteTestFile(tmpl + "/Library/Preferences/defaults", std::string(5000, 'p'));
    VNWriteTestFile(tmpl + "/Users/Shared/welcome", "hello", 0644);
    VNMakeFolders(tmpl + "/Users/Shared", 01777);
    VNMakeFolders(tmpl + "/Library/Veltra/System/Library/Receipts");
    VNWriteTestFile(data + "/Users/alice/diary", "private words", 0600);
    VNMakeFolders(data + "/Users", 0711);
  }
  bool install(VNError* error, VNUDataTemplateUtilities::ProgressBlock progress = nullptr) {
    return VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(VNFolderURL(system), VNFolderURL(data),
                                                                          /*instantiateTetherlinks=*/true,
                                                                          std::move(progress), error);
  }
  bool force(const std::string& source, const std::string& destination, VNError* error = nullptr) {
    return VNUDataTemplateUtilities::_forceAttributesOfSrcPath(VNFolderURL(source), VNFolderURL(destination), error);
  }
  // The folders of kept items on the data volume, one per installation
  // that replaced something.
  std::vector<fs::path> keptRuns() const {
    if (!fs::exists(data + "/.DTemplateReplacedItems")) return {};
    return {fs::directory_iterator(data + "/.DTemplateReplacedItems"), {}};
  }

  VNTestDir dir;
  VNLogCapture capture{dir / "migration.log"};
  std::string system = dir / "system", data = dir / "data", tmpl = system + "/System/Library/Templates/Data";
};

// A shove that fails as a full disk would, after noting whether any receipt
// was already on the data volume or still in what it was to move.
class FailingShove final : public VNShove {
 public:
  explicit FailingShove(std::string data) : data_(std::move(data)) {}
  int shove(const VNShoveRequest& request, const LogCallback&) override {
    receiptSeen = fs::exists(data_ + kReceipt) || fs::exists(request.source + kReceipt);
    return ENOSPC;
  }
  bool receiptSeen = true;

 private:
  std::string data_;
};

// Refuses flag changes below `refused` with EPERM; elsewhere the real flags.
class RefusingFileFlags final : public VNFileFlags {
 public:
  explicit RefusingFileFlags(std::string refused) : refused_(std::move(refused)) {}
  VNFsStatus getFlags(VNAtPath item, std::uint32_t* flags) override { return real_->getFlags(item, flags); }
  VNFsStatus setFlags(VNAtPath item, std::uint32_t flags) override {
    if (VNDescribeAtPath(item).rfind(refused_, 0) == 0) return VNFsStatus::failure(EPERM, "set flags of", item.path);
    return real_->setFlags(item, flags);
  }

 private:
  std::string refused_;
  std::shared_ptr<VNFileFlags> real_ = VNFileFlags::makeDefault();
};

}  // namespace

TEST_F(InstallTest, EmptyRootFailsWithCodeOneAndTouchesNothing) {
  VNError error;
  EXPECT_FALSE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(VNFileURL(), VNFolderURL(data), &error));
  EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
  EXPECT_EQ(error.code(), 1);
  EXPECT_EQ(error.localizedDescription(),
            "No mount point: system target ((null)), data target (" + VNFolderURL(data).absoluteString() + ")");
  EXPECT_FALSE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(VNFolderURL(system), VNFileURL(), nullptr));
  EXPECT_EQ(VNNamesIn(data), std::set<std::string>{"Users"});
  EXPECT_TRUE(capture.systemLog().entries().empty()) << "nothing is logged";
}

// The template (reached through a link at its root; links below it stay
// links) lands around the user's files, which keep their inode and times;
// Users keeps its own attributes, items below it get the template's.
// Progress counts items, never bytes.
TEST_F(InstallTest, PopulatesTheVolumeAroundTheUsersFiles) {
  fs::rename(tmpl, dir / "elsewhere");
  fs::create_directory_symlink(dir / "elsewhere", tmpl);
  ASSERT_EQ(::symlink("Preferences", (dir / "elsewhere/Library/linked").c_str()), 0);
  VNMakeFolders(data + "/.DTemplateInstantiation/left-over");
  struct stat diaryBefore = VNStatOf(data + "/Users/alice/diary");
  std::vector<std::uint64_t> counts;
  VNError error;
  ASSERT_TRUE(install(&error, [&](std::uint64_t items) { counts.push_back(items); })) << error.description();
  EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation")) << "the temporary folder is gone";
  EXPECT_EQ(VNReadTestFile(data + "/Library/Preferences/defaults"), std::string(5000, 'p'));
  EXPECT_EQ(VNReadTestFile(data + "/Users/Shared/welcome"), "hello");
  EXPECT_THAT(data + "/Library/linked", IsSymlinkTo("Preferences"));
  EXPECT_THAT(data + "/Users/alice/diary", HasTimes(diaryBefore));  // before reading it moves its atime
  EXPECT_EQ(VNReadTestFile(data + "/Users/alice/diary"), "private words");
  EXPECT_THAT(data + "/Users/alice/diary", HasMode(0600));
  EXPECT_EQ(VNStatOf(data + "/Users/alice/diary").st_ino, diaryBefore.st_ino);
  EXPECT_THAT(data + "/Users", HasMode(0711));
  EXPECT_THAT(data + "/Users/Shared", HasMode(01777));
  EXPECT_TRUE(fs::exists(data + kReceipt));
  ASSERT_FALSE(counts.empty());
  EXPECT_EQ(counts.front(), 0u);
  EXPECT_TRUE(std::is_sorted(counts.begin(), counts.end()));
  EXPECT_LT(counts.back(), 100u);
  auto lines = capture.systemLog().texts(Level::Default);
  EXPECT_THAT(lines, Contains(HasSubstr("Shoving ")));
  EXPECT_THAT(lines, Contains(HasSubstr("Data Template Source: file://" + tmpl)));
}

// Forcing reports a destination item that is missing as one error line; it
// acts on a destination link itself, never on its target, nor on anything
// below a link the user swapped in for a folder.
TEST_F(InstallTest, ForcingNeverReachesThroughALink) {
  VNMakeFolders(dir / "src/only-in-template");
  VNWriteTestFile(dir / "src/item", "x", 0644);
  VNWriteTestFile(dir / "src/level-0/level-1/tool", "t", 04755);
  VNMakeFolders(dir / "dst/level-0.moved/level-1");
  VNWriteTestFile(dir / "outside/level-1/tool", "mine", 0600);
  ASSERT_EQ(::chown((dir / "outside/level-1/tool").c_str(), 4321, 4321), 0);
  VNMakeFolders(dir / "outside/level-1", 0700);
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "dst/item").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "dst/level-0").c_str()), 0);
  VNError error;
  EXPECT_TRUE(force(dir / "src", dir / "dst", &error));
  EXPECT_THAT(dir / "outside", HasMode(0755));
  EXPECT_THAT(dir / "outside/level-1/tool", HasMode(0600));
  EXPECT_THAT(dir / "outside/level-1/tool", HasOwner(4321u, 4321u));
  EXPECT_THAT(dir / "outside/level-1", HasMode(0700));
  EXPECT_EQ(capture.systemLog().texts(Level::Error),
            std::vector<std::string>{"File does not exist at the destination we're copying attributes to."});
  EXPECT_TRUE(force(dir / "absent", dir / "dst", &error)) << "a source that can't be walked forces nothing";
}

// A refused flag change fails the installation with the POSIX error and
// path of the first item (a folder's contents go first), logged with errno.
TEST_F(InstallTest, FailedFlagChangeIsAPOSIXErrorWithTheLoggedErrno) {
  VNPlatformOverride<VNFileFlags> refusing(std::make_shared<RefusingFileFlags>(data + "/Users/"));
  VNError error;
  EXPECT_FALSE(install(&error));
  EXPECT_EQ(error.code(), 9);
  ASSERT_TRUE(error.underlyingError());
  EXPECT_TRUE(error.underlyingError()->isPOSIX(EPERM));
  EXPECT_EQ(error.underlyingError()->filePath(), data + "/Users/Shared/welcome");
  EXPECT_THAT(capture.systemLog().texts(Level::Error),
              Contains("Failed to chflags() source attributes to the destination path(" + data +
                       "/Users/Shared/welcome). errno:" + std::to_string(EPERM)));
}

// System and data roots on two subvolumes of one btrfs file system: the
// template's hard links still become clones across them. A caller that
// sized its progress display with an analysis: the installation does not
// repeat it, and the copier counts what it laid down.
TEST(InstallOnBtrfs, ClonesAcrossSubvolumesOfOneFileSystem) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  ASSERT_EQ(VNRunCommand("btrfs -q subvolume create " + *image / "system" + " && btrfs -q subvolume create " + *image / "data"), 0);
  std::string tmpl = *image / "system/System/Library/Templates/Data";
  VNWriteTestFile(tmpl + "/Library/blob", std::string(1 << 20, 'b'));
  ASSERT_EQ(::link((tmpl + "/Library/blob").c_str(), (tmpl + "/Library/blob2").c_str()), 0);
  VNTestDir logDir;
  VNLogCapture capture(logDir / "migration.log");
  auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFolderURL(*image / "system"));
  copier->analyzeDataTemplate();
  VNError error;
  ASSERT_TRUE(VNUDataTemplateUtilities::copyDataTemplateWithCopier(*copier, VNFolderURL(*image / "data"), &error))
      << error.description();
  std::vector<std::string> lines = capture.systemLog().texts(Level::Default);
  EXPECT_THAT(lines, Contains(HasSubstr(", 1 cloned items, 0 symlinked items")));
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l.starts_with("analyzed data template"); }), 1);
  EXPECT_EQ(copier->lastCopyCounts().items, 4u) << "the root, Library and two names";
  EXPECT_EQ(copier->lastCopyCounts().clonedItems, 1u);
  EXPECT_GE(copier->lastCopyCounts().bytes, 1u << 20);
  EXPECT_EQ(VNReadTestFile(*image / "data/Library/blob2"), std::string(1 << 20, 'b'));
  EXPECT_TRUE(VNAllExtentsShared(*image / "data/Library/blob")) << "the copy from the system subvolume is a clone";
}

// Refused before anything is written: overlapping volumes (the data volume
// as the system volume itself, inside the template, or holding it), and a
// volume another installation holds (naming the holder) or whose lock's
// name is a link, which is never followed.
TEST_F(InstallTest, OverlappingOrBusyVolumesAreRefusedBeforeWriting) {
  fs::create_directory_symlink(system, dir / "link-to-system");
  for (const std::string& target : {system, dir / "link-to-system", tmpl, tmpl + "/Users/Shared", dir.path()}) {
    VNError error;
    EXPECT_FALSE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(VNFolderURL(system), VNFolderURL(target), &error))
        << target;
    EXPECT_EQ(error.code(), VNUDataTemplateErrorVolumesOverlap) << target;
    EXPECT_FALSE(fs::exists(target + "/.DTemplateInstantiation")) << target;
  }
  VNError error;
  std::optional<long> holder;
  {
    auto lock = VNVolumeLock::acquire(data, ".DTemplateInstantiation.lock", &error, &holder);
    ASSERT_TRUE(lock);
    EXPECT_FALSE(install(&error));
    EXPECT_EQ(error.code(), VNUDataTemplateErrorVolumeBusy);
    EXPECT_THAT(error.localizedDescription(), HasSubstr("(process " + std::to_string(::getpid()) + ")"));
    EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation"));
  }
  fs::remove(data + "/.DTemplateInstantiation.lock");
  fs::create_symlink(dir / "elsewhere", data + "/.DTemplateInstantiation.lock");
  EXPECT_FALSE(install(&error));
  EXPECT_FALSE(fs::exists(dir / "elsewhere"));
  fs::remove(data + "/.DTemplateInstantiation.lock");
  EXPECT_TRUE(install(&error)) << error.description();
}

// The template's receipts folder reached through a link in the copy, or the
// data volume's reached through a user's link: receipts are written only
// into real folders of the copy and of the volume, never through a link.
TEST_F(InstallTest, ReceiptsNeverFollowALinkOutOfTheVolume) {
  VNMakeFolders(dir / "outside/System/Library/Receipts");
  VNMakeFolders(data + "/Library");
  fs::create_directory_symlink(dir / "outside", data + "/Library/Veltra");
  VNError error;
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_TRUE(fs::is_empty(dir / "outside/System/Library/Receipts"));
  EXPECT_TRUE(fs::exists(data + kReceipt)) << "placed in the template's own folder";
  ASSERT_EQ(keptRuns().size(), 1u);
  EXPECT_THAT(keptRuns()[0] / "Library/Veltra", IsSymlinkTo(dir / "outside")) << "the user's link is kept";

  fs::remove_all(tmpl + "/Library/Veltra");
  fs::create_directory_symlink(dir / "outside", tmpl + "/Library/Veltra");
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_TRUE(fs::is_empty(dir / "outside/System/Library/Receipts"));
  EXPECT_THAT(capture.systemLog().texts(Level::Default),
              Contains(HasSubstr("skipping data template receipts, directory is or lies below a symbolic link: " + data +
                                 "/.DTemplateInstantiation/Library/Veltra")));
  EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation.receipts"));
}

// The user's items the template replaces, a folder where the template has a
// file included, are logged and kept; the receipts arrive after everything
// else, so a failed installation leaves none, and the next one finishes.
TEST_F(InstallTest, ReceiptsArriveLastAndNothingOfTheUsersIsLost) {
  VNWriteTestFile(data + "/Users/Shared/welcome/draft", "a folder where the template has a file");
  VNWriteTestFile(data + "/Library/Preferences/defaults", "mine");
  VNError error;
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_EQ(VNReadTestFile(data + "/Users/Shared/welcome"), "hello");
  ASSERT_EQ(keptRuns().size(), 1u);
  const std::string kept = keptRuns()[0];
  EXPECT_EQ(VNReadTestFile(kept + "/Users/Shared/welcome/draft"), "a folder where the template has a file");
  EXPECT_EQ(VNReadTestFile(kept + "/Library/Preferences/defaults"), "mine");
  EXPECT_THAT(capture.systemLog().texts(Level::Default),
              Contains("Shove: replaced '" + data + "/Library/Preferences/defaults'; the earlier item is kept at '" + kept +
                       "/Library/Preferences/defaults'"));
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_EQ(keptRuns().size(), 1u) << "the template's own items from the first run are not kept";

  auto failing = std::make_shared<FailingShove>(data);
  {
    VNPlatformOverride<VNShove> shove(failing);
    EXPECT_FALSE(install(&error));
  }
  EXPECT_EQ(error.code(), VNUDataTemplateErrorShove);
  EXPECT_FALSE(failing->receiptSeen) << "no receipt on the volume or in the copy while the shove runs";
  EXPECT_FALSE(fs::exists(data + kReceipt)) << "no receipt after a failed installation";
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_TRUE(fs::exists(data + kReceipt));
  EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation.receipts"));
  EXPECT_EQ(keptRuns().size(), 1u);
}

// Every log line of a copy, the receipts' included, reaches the copier's
// handler on the caller's thread.
TEST_F(InstallTest, CopierLogLinesComeOnTheCallersThread) {
  auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFolderURL(system));
  std::vector<std::pair<std::thread::id, std::string>> lines;
  copier->setLogHandler([&](VNUDataTemplateCopier&, const std::string& line) {
    lines.emplace_back(std::this_thread::get_id(), line);
  });
  VNMakeFolders(dir / "copy");
  VNError error;
  ASSERT_TRUE(copier->copyDataTemplateToURL(VNFolderURL(dir / "copy"), &error)) << error.description();
  EXPECT_THAT(lines, Contains(::testing::Pair(::testing::_, HasSubstr("wrote receipt plist to "))));
  for (const auto& [thread, line] : lines) EXPECT_EQ(thread, std::this_thread::get_id()) << line;
}
