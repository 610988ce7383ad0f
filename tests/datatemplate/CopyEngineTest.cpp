#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "platform/VNFileFlags.h"
#include "platform/VNPlatformService.h"
#include "platform/VNStorageTiers.h"
#include "support/VNFsMatchers.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

// A system root with a data template below `base`, and a copier on it that
// records its log lines and progress reports.
class TemplateRun {
 public:
  explicit TemplateRun(const std::string& base)
      : root_(base + "/system"), template_(root_ + "/System/Library/Templates/Data"),
        target_(base + "/target") {
    fs::create_directories(template_);
    fs::create_directories(target_);
  }

  std::string tmpl(const std::string& relative) const { return template_ + "/" + relative; }
  std::string target(const std::string& relative = "") const {
    return relative.empty() ? target_ : target_ + "/" + relative;
  }
  void patterns(const std::string& text) const {
    VNWriteTestFile(root_ + "/System/Library/Templates/Data.symlink-patterns", text);
  }

  bool copy(VNError* error = nullptr) {
    copier_ = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath(root_, true));
    copier_->setLogHandler([this](VNUDataTemplateCopier&, const std::string& line) { log.push_back(line); });
    copier_->loadSymlinkedPatterns();
    auto progressBlock = [this](VNUDataTemplateCopier&, std::uint64_t items, std::uint64_t bytes) {
      progress.emplace_back(items, bytes);
    };
    return copier_->_copyDataTemplateIfNeededToURL(VNFileURL::fileURLWithPath(target_, true), error,
                                                   progressBlock);
  }

  std::string lastLine() const { return log.empty() ? "" : log.back(); }

  std::vector<std::string> log;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> progress;

 private:
  std::string root_, template_, target_;
  std::shared_ptr<VNUDataTemplateCopier> copier_;
};

}  // namespace

TEST(CopyEngine, MissingTemplateCopiesNothingAndSucceeds) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  fs::remove(run.tmpl(""));
  VNError error;
  EXPECT_TRUE(run.copy(&error));
  EXPECT_THAT(run.lastLine(), HasSubstr("skipping data template copy, template not present: "));
  EXPECT_TRUE(fs::is_empty(run.target()));
  EXPECT_TRUE(run.progress.empty());
}

// Every kind of template item, on a file system that can clone.
TEST(CopyEngine, LaysDownEachKindOfItem) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  TemplateRun run(image->mountPoint());
  run.patterns("# kinds\nLibrary/Caches/\nnotes/*.txt\nlinks/*\n");
  fs::create_directories(run.tmpl("Library/Caches/deep"));
  for (int i = 0; i < 100; ++i) VNWriteTestFile(run.tmpl("Library/Caches/deep/") + std::to_string(i), "x");
  fs::create_directories(run.tmpl("notes"));
  VNWriteTestFile(run.tmpl("notes/a.txt"), "symlinked file");
  VNWriteTestFile(run.tmpl("notes/b.md"), "copied file", 0640);
  fs::create_directories(run.tmpl("links"));
  ::symlink("../notes/b.md", run.tmpl("links/kept").c_str());
  VNWriteTestFile(run.tmpl("group1"), "0123456789");
  ::link(run.tmpl("group1").c_str(), run.tmpl("group2").c_str());
  ::link(run.tmpl("group1").c_str(), run.tmpl("notes/group3").c_str());
  ASSERT_EQ(::mkfifo(run.tmpl("fifo").c_str(), 0600), 0);
  ::chmod(run.tmpl("notes").c_str(), 0750);
  struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
  ::utimensat(AT_FDCWD, run.tmpl("notes").c_str(), old, AT_SYMLINK_NOFOLLOW);

  VNError error;
  ASSERT_TRUE(run.copy(&error)) << error.description();

  EXPECT_THAT(run.target("Library/Caches"), IsSymlinkTo("../System/Library/Templates/Data/Library/Caches/"));
  EXPECT_THAT(run.target("notes/a.txt"), IsSymlinkTo("../System/Library/Templates/Data/notes/a.txt"));
  EXPECT_THAT(run.target("links/kept"), IsSymlinkTo("../notes/b.md")) << "template links are never replaced";
  EXPECT_EQ(VNReadTestFile(run.target("notes/b.md")), "copied file");
  EXPECT_THAT(run.target("notes/b.md"), HasMode(0640));
  EXPECT_EQ(VNReadTestFile(run.target("notes/group3")), "0123456789");
  struct stat first {}, clone {}, fifo {};
  ASSERT_EQ(::lstat(run.target("group1").c_str(), &first), 0);
  ASSERT_EQ(::lstat(run.target("notes/group3").c_str(), &clone), 0);
  EXPECT_NE(first.st_ino, clone.st_ino) << "later names are clones, not hard links";
  ASSERT_EQ(::lstat(run.target("fifo").c_str(), &fifo), 0);
  EXPECT_TRUE(S_ISFIFO(fifo.st_mode));
  EXPECT_THAT(run.target("notes"), HasMode(0750));
  struct stat notes {};
  ASSERT_EQ(::lstat(run.target("notes").c_str(), &notes), 0);
  EXPECT_EQ(notes.st_mtim.tv_sec, 1000000000) << "directory times land after its contents";

  // root, Library, Library/Caches (one link), notes, a.txt, b.md, group3,
  // links, kept, group1, group2, fifo
  EXPECT_THAT(run.lastLine(), HasSubstr(": 12 items ("));
  EXPECT_THAT(run.lastLine(), HasSubstr(", 2 cloned items, 2 symlinked items"));
  ASSERT_GE(run.progress.size(), 2u);
  EXPECT_EQ(run.progress.front().first, 0u);
  EXPECT_EQ(run.progress.front().second, 0u);
  EXPECT_EQ(run.progress.back().first, 12u);
  EXPECT_EQ(run.progress.back().second, 11u + 30u) << "b.md and three names of group";
}

TEST(CopyEngine, SymlinkOverNonEmptyFolderFailsWithTheLinkError) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  run.patterns("Shared/\n");
  fs::create_directories(run.tmpl("Shared"));
  fs::create_directories(run.target("Shared/user"));
  VNWriteTestFile(run.target("Shared/user/keep"), "user data");

  VNError error;
  EXPECT_FALSE(run.copy(&error));
  EXPECT_EQ(error.domain(), VNPOSIXErrorDomain);
  EXPECT_EQ(error.code(), EEXIST);
  EXPECT_EQ(error.filePath(), run.target("Shared"));
  EXPECT_EQ(VNReadTestFile(run.target("Shared/user/keep")), "user data");
  ASSERT_GE(run.log.size(), 2u);
  EXPECT_THAT(run.log[run.log.size() - 2], HasSubstr("could not create symlink at " + run.target("Shared")));
  EXPECT_THAT(run.lastLine(), HasSubstr("failed to copy data template from "));
  EXPECT_EQ(run.progress.back().first, 0u) << "final progress is sent after a failure too";
}

TEST(CopyEngine, CopyingTwiceReplacesItemsInsteadOfWritingIntoThem) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  VNWriteTestFile(run.tmpl("file"), "version one");
  ::symlink("one", run.tmpl("link").c_str());
  ASSERT_TRUE(run.copy());
  // Someone outside holds a second name of the first copy: a copy that wrote
  // into the existing file would change what that name shows.
  ASSERT_EQ(::link(run.target("file").c_str(), (dir / "outside").c_str()), 0);
  VNWriteTestFile(run.tmpl("file"), "version two");
  fs::remove(run.tmpl("link"));
  ::symlink("two", run.tmpl("link").c_str());

  ASSERT_TRUE(run.copy());
  EXPECT_EQ(VNReadTestFile(run.target("file")), "version two");
  EXPECT_EQ(VNReadTestFile(dir / "outside"), "version one");
  EXPECT_THAT(run.target("link"), IsSymlinkTo("two"));
}

TEST(CopyEngine, FullFileSystemEndsTheWalkWithENOSPCAndThePath) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 16u << 20);
  VNTestDir dir;
  TemplateRun run(dir.path());
  VNWriteTestFile(run.tmpl("big"), std::string(32u << 20, 'z'));
  run.patterns("");
  auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath(dir / "system", true));
  std::vector<std::uint64_t> items;
  VNError error;
  bool ok = copier->_copyDataTemplateIfNeededToURL(
      VNFileURL::fileURLWithPath(image->mountPoint(), true), &error,
      [&](VNUDataTemplateCopier&, std::uint64_t count, std::uint64_t) { items.push_back(count); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(error.code(), ENOSPC);
  EXPECT_EQ(error.filePath(), image->mountPoint() + "/big");
  EXPECT_FALSE(fs::exists(image->mountPoint() + "/big")) << "a half-written copy is removed";
  ASSERT_FALSE(items.empty());
  EXPECT_EQ(items.front(), 0u);
}

namespace {
// Tiers where the template is pinned fast and every change is refused.
class RefusingTiers final : public VNStorageTiers {
 public:
  explicit RefusingTiers(std::string templateRoot) : templateRoot_(std::move(templateRoot)) {}
  VNFsStatus getTierFlags(VNAtPath item, bool, std::uint64_t* flags) override {
    *flags = std::string(item.path).rfind(templateRoot_, 0) == 0 ? VNTierFlag::PinnedFast : 0;
    return {};
  }
  VNFsStatus setFastPromotion(VNAtPath item, bool, bool) override {
    return VNFsStatus::failure(EPERM, "set fast promotion of", item.path);
  }
  VNFsStatus setPin(VNAtPath item, Pin, bool) override {
    return VNFsStatus::failure(EPERM, "pin", item.path);
  }

 private:
  std::string templateRoot_;
};
}  // namespace

TEST(CopyEngine, FailedTierFlagChangeIsLoggedAndTheCopyGoesOn) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  VNWriteTestFile(run.tmpl("file"), "data");
  VNPlatformOverride<VNStorageTiers> tiers(std::make_shared<RefusingTiers>(run.tmpl("")));
  VNError error;
  ASSERT_TRUE(run.copy(&error)) << error.description();
  int tierLines = 0;
  for (const auto& line : run.log)
    tierLines += line.find("could not preserve QRFS Tandem flags for " + run.target("file")) == 0;
  EXPECT_EQ(tierLines, 1);
  EXPECT_EQ(VNReadTestFile(run.target("file")), "data");
}

TEST(CopyEngine, ALinkLaidDownForAnItemCarriesThatItemsOwnerFlagsAndTimes) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: setting owners and WARD flags needs root";
  VNTestDir dir;
  TemplateRun run(dir.path());
  run.patterns("Shared/\nnotes/*.txt\n");
  fs::create_directories(run.tmpl("Shared"));
  fs::create_directories(run.tmpl("notes"));
  VNWriteTestFile(run.tmpl("notes/a.txt"), "text");
  auto flags = VNFileFlags::makeDefault();
  for (const char* item : {"Shared", "notes/a.txt"}) {
    ASSERT_EQ(::lchown(run.tmpl(item).c_str(), 1234, 5678), 0);
    ASSERT_TRUE(flags->setFlags(run.tmpl(item), VNFileFlag::Restricted).ok());
    struct timespec times[2] = {{1100000000, 5}, {1200000000, 7}};
    ASSERT_EQ(::utimensat(AT_FDCWD, run.tmpl(item).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  VNError error;
  ASSERT_TRUE(run.copy(&error)) << error.description();
  for (const char* item : {"Shared", "notes/a.txt"}) {
    struct stat want {};
    ASSERT_EQ(::lstat(run.tmpl(item).c_str(), &want), 0);
    std::string link = run.target(item);
    EXPECT_THAT(link, HasTimes(want)) << "checked before reading the link, which sets its atime";
    EXPECT_THAT(link, HasOwner(1234, 5678));
    EXPECT_THAT(link, IsSymlinkTo(std::string(item) == "Shared" ? "System/Library/Templates/Data/Shared/"
                                                                 : "../System/Library/Templates/Data/notes/a.txt"));
    std::uint32_t word = 0;
    ASSERT_TRUE(flags->getFlags(link, &word).ok());
    EXPECT_EQ(word & VNFileFlag::WARDMask, VNFileFlag::Restricted) << item;
  }
}
