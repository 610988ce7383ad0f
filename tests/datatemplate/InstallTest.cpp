#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "platform/VNFileFlags.h"
#include "platform/VNPlatformService.h"
#include "platform/VNShove.h"
#include "platform/VNVolumeLock.h"
#include "support/VNExtents.h"
#include "support/VNFsMatchers.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"
#include "support/VNDescribeAtPath.h"

namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

VNFileURL folder(const std::string& path) { return VNFileURL::fileURLWithPath(path, true); }

std::vector<std::string> linesAt(VNLogCapture& capture, VNSystemLog::Level level) {
  std::vector<std::string> lines;
  for (const auto& entry : capture.systemLog().entries())
    if (entry.level == level) lines.push_back(entry.text);
  return lines;
}

// A system volume with a small template and a data volume that already
// holds a user's files, side by side below one folder.
class InstallTest : public ::testing::Test {
 protected:
  void SetUp() override { build(dir.path()); }

  void build(const std::string& base) {
    system = base + "/system";
    data = base + "/data";
    tmpl = system + "/System/Library/Templates/Data";
    fs::create_directories(tmpl + "/Users/Shared");
    fs::create_directories(tmpl + "/Library/Preferences");
    fs::create_directories(tmpl + "/Library/Veltra/System/Library/Receipts");
    VNWriteTestFile(tmpl + "/Library/Preferences/defaults", std::string(5000, 'p'));
    VNWriteTestFile(tmpl + "/Users/Shared/welcome", "hello", 0644);
    ::chmod((tmpl + "/Users/Shared").c_str(), 01777);
    ::chmod((tmpl + "/Users").c_str(), 0755);
    fs::create_directories(data + "/Users/alice");
    VNWriteTestFile(data + "/Users/alice/diary", "private words", 0600);
    ::chmod((data + "/Users").c_str(), 0711);
  }

  bool install(VNError* error, VNUDataTemplateUtilities::ProgressBlock progress = nullptr) {
    return VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(
        folder(system), folder(data), /*instantiateTetherlinks=*/true, std::move(progress), error);
  }

  VNTestDir dir;
  VNLogCapture capture{dir / "migration.log"};
  std::string system, data, tmpl;
};

}  // namespace

TEST_F(InstallTest, EmptyRootFailsWithCodeOneAndTouchesNothing) {
  VNError error;
  EXPECT_FALSE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(VNFileURL(), folder(data), &error));
  EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
  EXPECT_EQ(error.code(), 1);
  EXPECT_EQ(error.localizedDescription(),
            "No mount point: system target ((null)), data target (" + folder(data).absoluteString() + ")");
  EXPECT_FALSE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(folder(system), VNFileURL(), nullptr));
  EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation"));
  EXPECT_FALSE(fs::exists(data + "/Library"));
  EXPECT_TRUE(capture.systemLog().entries().empty()) << "nothing is logged";
}

TEST_F(InstallTest, PopulatesTheVolumeAroundTheUsersFiles) {
  fs::create_directories(data + "/.DTemplateInstantiation/left-over");
  struct stat diaryBefore {};
  ASSERT_EQ(::lstat((data + "/Users/alice/diary").c_str(), &diaryBefore), 0);
  std::vector<std::uint64_t> counts;
  VNError error;
  ASSERT_TRUE(install(&error, [&](std::uint64_t items) { counts.push_back(items); })) << error.description();

  EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation")) << "the temporary folder is gone";
  EXPECT_EQ(VNReadTestFile(data + "/Library/Preferences/defaults"), std::string(5000, 'p'));
  EXPECT_EQ(VNReadTestFile(data + "/Users/Shared/welcome"), "hello");
  EXPECT_EQ(VNReadTestFile(data + "/Users/alice/diary"), "private words");
  EXPECT_THAT(data + "/Users/alice/diary", HasMode(0600));
  struct stat diaryAfter {};
  ASSERT_EQ(::lstat((data + "/Users/alice/diary").c_str(), &diaryAfter), 0);
  EXPECT_EQ(diaryAfter.st_mtim.tv_nsec, diaryBefore.st_mtim.tv_nsec);
  EXPECT_EQ(diaryAfter.st_ino, diaryBefore.st_ino);
  EXPECT_THAT(data + "/Users", HasMode(0711)) << "Users keeps its own attributes";
  EXPECT_THAT(data + "/Users/Shared", HasMode(01777)) << "items below Users get the template's";
  EXPECT_TRUE(fs::exists(data + "/Library/Veltra/System/Library/Receipts/org.varnel.files.data-template.plist"));

  ASSERT_FALSE(counts.empty());
  EXPECT_EQ(counts.front(), 0u);
  for (size_t i = 1; i < counts.size(); ++i) EXPECT_LE(counts[i - 1], counts[i]);
  EXPECT_LT(counts.back(), 100u) << "item counts, never bytes";
  auto lines = linesAt(capture, VNSystemLog::Level::Default);
  EXPECT_THAT(lines, ::testing::Contains(HasSubstr("Shoving ")));
  EXPECT_THAT(lines, ::testing::Contains(HasSubstr("Data Template Source: file://" + tmpl)));
}

TEST_F(InstallTest, TemplateRootThatIsALinkIsFollowed) {
  fs::rename(tmpl, dir / "elsewhere");
  fs::create_directory_symlink(dir / "elsewhere", tmpl);
  ASSERT_EQ(::symlink("Preferences", (dir / "elsewhere/Library/linked").c_str()), 0);
  VNError error;
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_EQ(VNReadTestFile(data + "/Library/Preferences/defaults"), std::string(5000, 'p'));
  EXPECT_THAT(data + "/Users/Shared", HasMode(01777));
  EXPECT_EQ(fs::read_symlink(data + "/Library/linked"), "Preferences") << "links below the root stay links";
}

TEST_F(InstallTest, TetherlinkFlagDoesNotChangeTheResult) {
  ASSERT_TRUE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(folder(system), folder(data), false, nullptr));
  auto first = VNReadTestFile(data + "/Users/Shared/welcome");
  ASSERT_TRUE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(folder(system), folder(data), nullptr));
  EXPECT_EQ(VNReadTestFile(data + "/Users/Shared/welcome"), first);
}

TEST_F(InstallTest, MissingDestinationItemIsOneErrorLineNotAFailure) {
  fs::create_directories(dir / "src/only-in-template");
  fs::create_directories(dir / "dst");
  VNError error;
  EXPECT_TRUE(VNUDataTemplateUtilities::_forceAttributesOfSrcPath(folder(dir / "src"), folder(dir / "dst"), &error));
  auto errors = linesAt(capture, VNSystemLog::Level::Error);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0], "File does not exist at the destination we're copying attributes to.");
  EXPECT_TRUE(VNUDataTemplateUtilities::_forceAttributesOfSrcPath(folder(dir / "absent"), folder(dir / "dst"), &error))
      << "a source that can't be walked forces nothing";
}

TEST_F(InstallTest, ForcingActsOnADestinationLinkNotItsTarget) {
  fs::create_directories(dir / "src");
  fs::create_directories(dir / "dst");
  fs::create_directories(dir / "elsewhere");
  ::chmod((dir / "elsewhere").c_str(), 0700);
  VNWriteTestFile(dir / "src/item", "x", 0644);
  ::symlink((dir / "elsewhere").c_str(), (dir / "dst/item").c_str());
  ASSERT_TRUE(VNUDataTemplateUtilities::_forceAttributesOfSrcPath(folder(dir / "src"), folder(dir / "dst")));
  EXPECT_THAT(dir / "elsewhere", HasMode(0700));
}

namespace {
// Refuses flag changes below `refused` with EPERM; elsewhere the real flags.
class RefusingFileFlags final : public VNFileFlags {
 public:
  explicit RefusingFileFlags(std::string refused) : refused_(std::move(refused)) {}
  VNFsStatus getFlags(VNAtPath item, std::uint32_t* flags) override { return real_->getFlags(item, flags); }
  VNFsStatus setFlags(VNAtPath item, std::uint32_t flags) override {
    if (VNDescribeAtPath(item).rfind(refused_, 0) == 0)
      return VNFsStatus::failure(EPERM, "set flags of", item.path);
    return real_->setFlags(item, flags);
  }

 private:
  std::string refused_;
  std::shared_ptr<VNFileFlags> real_ = VNFileFlags::makeDefault();
};
}  // namespace

TEST_F(InstallTest, FailedFlagChangeIsAPOSIXErrorWithTheLoggedErrno) {
  VNPlatformOverride<VNFileFlags> refusing(std::make_shared<RefusingFileFlags>(data + "/Users/"));
  VNError error;
  EXPECT_FALSE(install(&error));
  EXPECT_EQ(error.code(), 9);
  ASSERT_TRUE(error.underlyingError());
  EXPECT_EQ(error.underlyingError()->domain(), VNPOSIXErrorDomain);
  EXPECT_EQ(error.underlyingError()->code(), EPERM);
  EXPECT_EQ(error.underlyingError()->filePath(), data + "/Users/Shared/welcome") << "a folder's contents go first";
  EXPECT_THAT(linesAt(capture, VNSystemLog::Level::Error),
              ::testing::Contains("Failed to chflags() source attributes to the destination path(" + data +
                                  "/Users/Shared/welcome). errno:" + std::to_string(EPERM)));
}

// The user swaps a template folder on the data volume for a link to a folder
// elsewhere after the merge: nothing there, at any depth below the link, is
// given the template's owner, permission bits or flags.
TEST_F(InstallTest, ForcingNeverReachesThroughALinkSwappedInForAFolder) {
  fs::create_directories(dir / "src/level-0/level-1");
  VNWriteTestFile(dir / "src/level-0/level-1/tool", "t", 04755);
  fs::create_directories(dir / "dst/level-0.moved/level-1");
  fs::create_directories(dir / "outside/level-1");
  VNWriteTestFile(dir / "outside/level-1/tool", "mine", 0600);
  ASSERT_EQ(::chown((dir / "outside/level-1/tool").c_str(), 4321, 4321), 0);
  ::chmod((dir / "outside/level-1").c_str(), 0700);
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "dst/level-0").c_str()), 0);
  ASSERT_TRUE(VNUDataTemplateUtilities::_forceAttributesOfSrcPath(folder(dir / "src"), folder(dir / "dst")));
  EXPECT_THAT(dir / "outside/level-1/tool", HasMode(0600));
  EXPECT_THAT(dir / "outside/level-1/tool", HasOwner(4321u, 4321u));
  EXPECT_THAT(dir / "outside/level-1", HasMode(0700));
}

// System and data roots on two subvolumes of one btrfs file system: the
// template's hard links still become clones across them.
TEST(InstallOnBtrfs, ClonesAcrossSubvolumesOfOneFileSystem) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  ASSERT_EQ(VNRunCommand("btrfs subvolume create " + *image / "system" + " >/dev/null"), 0);
  ASSERT_EQ(VNRunCommand("btrfs subvolume create " + *image / "data" + " >/dev/null"), 0);
  std::string tmpl = *image / "system/System/Library/Templates/Data";
  fs::create_directories(tmpl + "/Library");
  VNWriteTestFile(tmpl + "/Library/blob", std::string(1 << 20, 'b'));
  ASSERT_EQ(::link((tmpl + "/Library/blob").c_str(), (tmpl + "/Library/blob2").c_str()), 0);
  VNTestDir logDir;
  VNLogCapture capture(logDir / "migration.log");
  // A caller that sized its progress display with an analysis: the
  // installation does not repeat it, and the copier counts what it laid
  // down, which the analysis cannot without a template BOM.
  auto copier = VNUDataTemplateCopier::initWithSystemURL(folder(*image / "system"));
  copier->analyzeDataTemplate();
  VNError error;
  ASSERT_TRUE(VNUDataTemplateUtilities::copyDataTemplateWithCopier(*copier, folder(*image / "data"), &error))
      << error.description();
  std::vector<std::string> lines = linesAt(capture, VNSystemLog::Level::Default);
  EXPECT_THAT(lines, ::testing::Contains(HasSubstr(", 1 cloned items, 0 symlinked items")));
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.starts_with("analyzed data template"); }),
            1);
  EXPECT_EQ(copier->lastCopyCounts().items, 4u) << "the root, Library and two names";
  EXPECT_EQ(copier->lastCopyCounts().clonedItems, 1u);
  EXPECT_GE(copier->lastCopyCounts().bytes, 1u << 20);
  EXPECT_EQ(VNReadTestFile(*image / "data/Library/blob2"), std::string(1 << 20, 'b'));
  EXPECT_TRUE(VNAllExtentsShared(*image / "data/Library/blob")) << "the copy from the system subvolume is a clone";
}

// Overlapping volumes are refused before anything is written: the data volume
// as the system volume itself, inside the template, or holding the template.
TEST_F(InstallTest, OverlappingVolumesAreRefusedBeforeWriting) {
  fs::create_directories(dir / "link-to-system");
  fs::remove(dir / "link-to-system");
  fs::create_directory_symlink(system, dir / "link-to-system");
  for (const std::string& target : {system, dir / "link-to-system", tmpl, tmpl + "/Users/Shared", dir.path()}) {
    VNError error;
    EXPECT_FALSE(VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(folder(system), folder(target), &error))
        << target;
    EXPECT_EQ(error.code(), VNUDataTemplateErrorVolumesOverlap) << target;
    EXPECT_FALSE(fs::exists(target + "/.DTemplateInstantiation")) << target;
  }
  EXPECT_TRUE(install(nullptr)) << "volumes side by side are fine";
}

// A second installation onto a volume in use is refused, naming the holder,
// and touches nothing; once the first is done the volume is free again.
TEST_F(InstallTest, SecondInstallationOntoAVolumeInUseIsRefused) {
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
  EXPECT_FALSE(install(&error)) << "a link at the lock's name is never followed";
  EXPECT_FALSE(fs::exists(dir / "elsewhere"));
  fs::remove(data + "/.DTemplateInstantiation.lock");
  EXPECT_TRUE(install(&error)) << error.description();
}

namespace {

constexpr const char* kReceipt = "/Library/Veltra/System/Library/Receipts/org.varnel.files.data-template.plist";

// The folders of kept items on the data volume, one per installation that
// replaced something.
std::vector<std::string> keptRuns(const std::string& data) {
  std::vector<std::string> runs;
  if (!fs::exists(data + "/.DTemplateReplacedItems")) return runs;
  for (const auto& entry : fs::directory_iterator(data + "/.DTemplateReplacedItems"))
    runs.push_back(entry.path().string());
  return runs;
}

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

}  // namespace

// The template's receipts folder reached through a link in the copy, or the
// data volume's reached through a user's link: receipts are written only
// into real folders of the copy and of the volume, never through a link.
TEST_F(InstallTest, ReceiptsNeverFollowALinkOutOfTheVolume) {
  fs::create_directories(dir / "outside/System/Library/Receipts");
  fs::create_directories(data + "/Library");
  fs::create_directory_symlink(dir / "outside", data + "/Library/Veltra");
  VNError error;
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_TRUE(fs::is_empty(dir / "outside/System/Library/Receipts"));
  EXPECT_TRUE(fs::exists(data + kReceipt)) << "placed in the template's own folder";
  ASSERT_EQ(keptRuns(data).size(), 1u);
  EXPECT_EQ(fs::read_symlink(keptRuns(data)[0] + "/Library/Veltra"), dir / "outside") << "the user's link is kept";

  fs::remove_all(tmpl + "/Library/Veltra");
  fs::create_directory_symlink(dir / "outside", tmpl + "/Library/Veltra");
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_TRUE(fs::is_empty(dir / "outside/System/Library/Receipts"));
  EXPECT_THAT(linesAt(capture, VNSystemLog::Level::Default),
              ::testing::Contains(HasSubstr("skipping data template receipts, directory is or lies below a "
                                            "symbolic link: " + data + "/.DTemplateInstantiation/Library/Veltra")));
  EXPECT_FALSE(fs::exists(data + "/.DTemplateInstantiation.receipts"));
}

// The user's items the template replaces, a folder where the template has a
// file included, are logged and kept; the receipts arrive after everything
// else, so a failed installation leaves none, and the next one finishes.
TEST_F(InstallTest, ReceiptsArriveLastAndNothingOfTheUsersIsLost) {
  fs::create_directories(data + "/Users/Shared/welcome");
  VNWriteTestFile(data + "/Users/Shared/welcome/draft", "a folder where the template has a file");
  fs::create_directories(data + "/Library/Preferences");
  VNWriteTestFile(data + "/Library/Preferences/defaults", "mine");
  VNError error;
  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_EQ(VNReadTestFile(data + "/Users/Shared/welcome"), "hello");
  ASSERT_EQ(keptRuns(data).size(), 1u);
  const std::string kept = keptRuns(data)[0];
  EXPECT_EQ(VNReadTestFile(kept + "/Users/Shared/welcome/draft"), "a folder where the template has a file");
  EXPECT_EQ(VNReadTestFile(kept + "/Library/Preferences/defaults"), "mine");
  EXPECT_THAT(linesAt(capture, VNSystemLog::Level::Default),
              ::testing::Contains("Shove: replaced '" + data + "/Library/Preferences/defaults'; the earlier item is "
                                  "kept at '" + kept + "/Library/Preferences/defaults'"));
  EXPECT_TRUE(fs::exists(data + kReceipt));

  ASSERT_TRUE(install(&error)) << error.description();
  EXPECT_EQ(keptRuns(data).size(), 1u) << "the template's own items from the first run are not kept";

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
  EXPECT_EQ(keptRuns(data).size(), 1u);
}

// Every log line of a copy, the receipts' included, reaches the copier's
// handler on the caller's thread.
TEST_F(InstallTest, CopierLogLinesComeOnTheCallersThread) {
  auto copier = VNUDataTemplateCopier::initWithSystemURL(folder(system));
  std::vector<std::pair<std::thread::id, std::string>> lines;
  copier->setLogHandler([&](VNUDataTemplateCopier&, const std::string& line) {
    lines.emplace_back(std::this_thread::get_id(), line);
  });
  fs::create_directories(dir / "copy");
  VNError error;
  ASSERT_TRUE(copier->copyDataTemplateToURL(folder(dir / "copy"), &error)) << error.description();
  EXPECT_THAT(lines, ::testing::Contains(::testing::Pair(::testing::_, HasSubstr("wrote receipt plist to "))));
  for (const auto& [thread, line] : lines) EXPECT_EQ(thread, std::this_thread::get_id()) << line;
}
