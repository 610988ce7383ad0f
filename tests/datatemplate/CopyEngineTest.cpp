#include "datatemplate/VNUDataTemplateCopier.h"
#include "platform/VNFileFlags.h"
#include "platform/VNStorageTiers.h"
#include "support/VNDescribeAtPath.h"
#include "support/VNFaultyFileSystemCalls.h"
#include "support/VNTest.h"

namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

// A system root with a data template below `base`, and a copier on it that
// records its log lines and progress reports.
class TemplateRun {
 public:
  explicit TemplateRun(const std::string& base)
      : root_(base + "/system"), template_(root_ + "/System/Library/Templates/Data"), target_(base + "/target") {
    VNMakeFolders(template_);
    VNMakeFolders(target_);
  }
  std::string tmpl(const std::string& relative) const { return template_ + "/" + relative; }
  std::string target(const std::string& relative = "") const {
    return relative.empty() ? target_ : target_ + "/" + relative;
  }
  void patterns(const std::string& text) const {
    VNWriteTestFile(root_ + "/System/Library/Templates/Data.symlink-patterns", text);
  }
  bool copy(VNError* error = nullptr, const std::string& into = {}) {
    copier_ = VNUDataTemplateCopier::initWithSystemURL(VNFolderURL(root_));
    copier_->setLogHandler([this](VNUDataTemplateCopier&, const std::string& line) { log.push_back(line); });
    copier_->loadSymlinkedPatterns();
    return copier_->_copyDataTemplateIfNeededToURL(
        VNFolderURL(into.empty() ? target_ : into), error,
        [this](VNUDataTemplateCopier&, std::uint64_t items, std::uint64_t bytes) { progress.emplace_back(items, bytes); });
  }
  std::string lastLine() const { return log.empty() ? "" : log.back(); }

  std::vector<std::string> log;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> progress;

 private:
  std::string root_, template_, target_;
  std::shared_ptr<VNUDataTemplateCopier> copier_;
};

// The copy runs with `threads` threads in all while this lives.
class CopyThreads {
 public:
  explicit CopyThreads(int threads) { ::setenv("VARNEL_COPY_THREADS", std::to_string(threads).c_str(), 1); }
  ~CopyThreads() { ::unsetenv("VARNEL_COPY_THREADS"); }
};

void setTimes(const std::string& path, time_t atime, time_t mtime, long nanoseconds = 0) {
  struct timespec times[2] = {{atime, nanoseconds}, {mtime, nanoseconds}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// Tiers where the template is pinned fast and every change is refused.
class RefusingTiers final : public VNStorageTiers {
 public:
  explicit RefusingTiers(std::string templateRoot) : templateRoot_(std::move(templateRoot)) {}
  VNFsStatus getTierFlags(VNAtPath item, bool, std::uint64_t* flags) override {
    *flags = VNDescribeAtPath(item).rfind(templateRoot_, 0) == 0 ? VNTierFlag::PinnedFast : 0;
    return {};
  }
  VNFsStatus setFastPromotion(VNAtPath item, bool, bool) override {
    return VNFsStatus::failure(EPERM, "set fast promotion of", item.path);
  }
  VNFsStatus setPin(VNAtPath item, Pin, bool) override { return VNFsStatus::failure(EPERM, "pin", item.path); }

 private:
  std::string templateRoot_;
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

// Every kind of template item, on a file system that can clone: symlinked
// folders and files, the template's own links, copies with their mode,
// later names of a file as clones, a FIFO, and folder times set after their
// contents.
TEST(CopyEngine, LaysDownEachKindOfItem) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  TemplateRun run(image->mountPoint());
  run.patterns("# kinds\nLibrary/Caches/\nnotes/*.txt\nlinks/*\n");
  for (int i = 0; i < 100; ++i) VNWriteTestFile(run.tmpl("Library/Caches/deep/") + std::to_string(i), "x");
  VNWriteTestFile(run.tmpl("notes/a.txt"), "symlinked file");
  VNWriteTestFile(run.tmpl("notes/b.md"), "copied file", 0640);
  VNMakeFolders(run.tmpl("links"));
  ASSERT_EQ(::symlink("../notes/b.md", run.tmpl("links/kept").c_str()), 0);
  VNWriteTestFile(run.tmpl("group1"), "0123456789");
  ASSERT_EQ(::link(run.tmpl("group1").c_str(), run.tmpl("group2").c_str()), 0);
  ASSERT_EQ(::link(run.tmpl("group1").c_str(), run.tmpl("notes/group3").c_str()), 0);
  ASSERT_EQ(::mkfifo(run.tmpl("fifo").c_str(), 0600), 0);
  VNMakeFolders(run.tmpl("notes"), 0750);
  setTimes(run.tmpl("notes"), 1000000000, 1000000000);
  VNError error;
  ASSERT_TRUE(run.copy(&error)) << error.description();
  EXPECT_THAT(run.target("Library/Caches"), IsSymlinkTo("../System/Library/Templates/Data/Library/Caches/"));
  EXPECT_THAT(run.target("notes/a.txt"), IsSymlinkTo("../System/Library/Templates/Data/notes/a.txt"));
  EXPECT_THAT(run.target("links/kept"), IsSymlinkTo("../notes/b.md")) << "template links are never replaced";
  EXPECT_EQ(VNReadTestFile(run.target("notes/b.md")), "copied file");
  EXPECT_THAT(run.target("notes/b.md"), HasMode(0640));
  EXPECT_EQ(VNReadTestFile(run.target("notes/group3")), "0123456789");
  EXPECT_THAT(run.target("notes/group3"), ::testing::Not(IsHardLinkOf(run.target("group1")))) << "later names are clones";
  EXPECT_TRUE(S_ISFIFO(VNStatOf(run.target("fifo")).st_mode));
  EXPECT_THAT(run.target("notes"), HasMode(0750));
  EXPECT_EQ(VNStatOf(run.target("notes")).st_mtim.tv_sec, 1000000000);
  // root, Library, Library/Caches (one link), notes, a.txt, b.md, group3,
  // links, kept, group1, group2, fifo
  EXPECT_THAT(run.lastLine(), HasSubstr(": 12 items ("));
  EXPECT_THAT(run.lastLine(), HasSubstr(", 2 cloned items, 2 symlinked items"));
  ASSERT_GE(run.progress.size(), 2u);
  EXPECT_EQ(run.progress.front(), (std::pair<std::uint64_t, std::uint64_t>{0, 0}));
  EXPECT_EQ(run.progress.back(), (std::pair<std::uint64_t, std::uint64_t>{12, 11 + 30}))
      << "b.md and three names of group1";
}

// A folder the user filled where the template wants a link fails the walk
// with the link's error and keeps the user's files; final progress is sent.
TEST(CopyEngine, SymlinkOverNonEmptyFolderFailsWithTheLinkError) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  run.patterns("Shared/\n");
  VNMakeFolders(run.tmpl("Shared"));
  VNWriteTestFile(run.target("Shared/user/keep"), "user data");
  VNError error;
  EXPECT_FALSE(run.copy(&error));
  EXPECT_TRUE(error.isPOSIX(EEXIST));
  EXPECT_EQ(error.filePath(), run.target("Shared"));
  EXPECT_EQ(VNReadTestFile(run.target("Shared/user/keep")), "user data");
  ASSERT_GE(run.log.size(), 2u);
  EXPECT_THAT(run.log.end()[-2], HasSubstr("could not create symlink at " + run.target("Shared")));
  EXPECT_THAT(run.lastLine(), HasSubstr("failed to copy data template from "));
  EXPECT_EQ(run.progress.back().first, 0u);
}

// A second copy replaces items instead of writing into them: a second name
// of the first copy, held outside, keeps the first contents.
TEST(CopyEngine, CopyingTwiceReplacesItemsInsteadOfWritingIntoThem) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  VNWriteTestFile(run.tmpl("file"), "version one");
  ASSERT_EQ(::symlink("one", run.tmpl("link").c_str()), 0);
  ASSERT_TRUE(run.copy());
  ASSERT_EQ(::link(run.target("file").c_str(), (dir / "outside").c_str()), 0);
  VNWriteTestFile(run.tmpl("file"), "version two");
  fs::remove(run.tmpl("link"));
  ASSERT_EQ(::symlink("two", run.tmpl("link").c_str()), 0);
  ASSERT_TRUE(run.copy());
  EXPECT_EQ(VNReadTestFile(run.target("file")), "version two");
  EXPECT_EQ(VNReadTestFile(dir / "outside"), "version one");
  EXPECT_THAT(run.target("link"), IsSymlinkTo("two"));
}

// A full file system ends the walk with ENOSPC and the path; the half-written
// copy is removed.
TEST(CopyEngine, FullFileSystemEndsTheWalkWithENOSPCAndThePath) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 16u << 20);
  VNTestDir dir;
  TemplateRun run(dir.path());
  VNWriteTestFile(run.tmpl("big"), std::string(32u << 20, 'z'));
  VNError error;
  EXPECT_FALSE(run.copy(&error, image->mountPoint()));
  EXPECT_TRUE(error.isPOSIX(ENOSPC));
  EXPECT_EQ(error.filePath(), *image / "big");
  EXPECT_FALSE(fs::exists(*image / "big"));
  ASSERT_FALSE(run.progress.empty());
  EXPECT_EQ(run.progress.front().first, 0u);
}

TEST(CopyEngine, FailedTierFlagChangeIsLoggedAndTheCopyGoesOn) {
  VNTestDir dir;
  TemplateRun run(dir.path());
  VNWriteTestFile(run.tmpl("file"), "data");
  VNPlatformOverride<VNStorageTiers> tiers(std::make_shared<RefusingTiers>(run.tmpl("")));
  VNError error;
  ASSERT_TRUE(run.copy(&error)) << error.description();
  EXPECT_EQ(std::count_if(run.log.begin(), run.log.end(), [&](const std::string& line) {
              return line.starts_with("could not preserve QRFS Tandem flags for " + run.target("file"));
            }), 1);
  EXPECT_EQ(VNReadTestFile(run.target("file")), "data");
}

TEST(CopyEngine, ALinkLaidDownForAnItemCarriesThatItemsOwnerFlagsAndTimes) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: setting owners and WARD flags needs root";
  VNTestDir dir;
  TemplateRun run(dir.path());
  run.patterns("Shared/\nnotes/*.txt\n");
  VNMakeFolders(run.tmpl("Shared"));
  VNWriteTestFile(run.tmpl("notes/a.txt"), "text");
  auto flags = VNFileFlags::makeDefault();
  const std::pair<const char*, const char*> links[] = {{"Shared", "System/Library/Templates/Data/Shared/"},
                                                       {"notes/a.txt", "../System/Library/Templates/Data/notes/a.txt"}};
  for (auto [item, target] : links) {
    ASSERT_EQ(::lchown(run.tmpl(item).c_str(), 1234, 5678), 0);
    ASSERT_TRUE(flags->setFlags(run.tmpl(item), VNFileFlag::Restricted).ok());
    setTimes(run.tmpl(item), 1100000000, 1200000000, 5);
  }
  VNError error;
  ASSERT_TRUE(run.copy(&error)) << error.description();
  for (auto [item, target] : links) {
    std::string link = run.target(item);
    EXPECT_THAT(link, HasTimes(VNStatOf(run.tmpl(item)))) << "checked before reading the link, which sets its atime";
    EXPECT_THAT(link, HasOwner(1234, 5678));
    EXPECT_THAT(link, IsSymlinkTo(target));
    std::uint32_t word = 0;
    ASSERT_TRUE(flags->getFlags(link, &word).ok());
    EXPECT_EQ(word & VNFileFlag::WARDMask, VNFileFlag::Restricted) << item;
  }
}

// Items are laid down on several threads, but a folder's own metadata lands
// only once everything in it is there: an immutable folder would refuse
// later items, and any item created late would leave new times behind.
// Progress goes one finished item at a time, the last count repeated.
TEST(CopyEngine, FoldersCloseAfterEverythingInThemWhateverTheThreadCount) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: the immutable flag needs root";
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  auto flags = VNFileFlags::makeDefault();
  for (int threads : {1, 2, 4}) {
    SCOPED_TRACE("threads: " + std::to_string(threads));
    TemplateRun run(*image / ("run" + std::to_string(threads)));
    run.patterns("");
    std::vector<std::string> folders;
    for (int i = 0; i < 6; ++i) {
      for (int j = 0; j < 3; ++j) {
        folders.push_back("d" + std::to_string(i) + "/s" + std::to_string(j));
        for (int k = 0; k < 20; ++k) VNWriteTestFile(run.tmpl(folders.back() + "/f" + std::to_string(k)), folders.back());
      }
      folders.push_back("d" + std::to_string(i));
    }
    VNWriteTestFile(run.tmpl("d0/h1"), "linked");
    ASSERT_EQ(::link(run.tmpl("d0/h1").c_str(), run.tmpl("d0/h2").c_str()), 0);
    ASSERT_EQ(::link(run.tmpl("d0/h1").c_str(), run.tmpl("d5/s2/h3").c_str()), 0);
    for (size_t n = 0; n < folders.size(); ++n) {
      VNMakeFolders(run.tmpl(folders[n]), n % 2 ? 0555 : 0750);
      setTimes(run.tmpl(folders[n]), 1000000000, 1000000000 + static_cast<time_t>(n));
    }
    ASSERT_TRUE(flags->setFlags(run.tmpl("d2/s1"), VNFileFlag::UserImmutable).ok());
    CopyThreads copyThreads(threads);
    VNError error;
    ASSERT_TRUE(run.copy(&error)) << error.description();
    for (const auto& folder : folders) {
      struct stat want = VNStatOf(run.tmpl(folder));
      EXPECT_THAT(run.target(folder), HasMode(want.st_mode & 07777)) << folder;
      EXPECT_EQ(VNStatOf(run.target(folder)).st_mtim.tv_sec, want.st_mtim.tv_sec) << folder;
    }
    EXPECT_EQ(VNReadTestFile(run.target("d2/s1/f19")), "d2/s1");
    std::uint32_t word = 0;
    ASSERT_TRUE(flags->getFlags(run.target("d2/s1"), &word).ok());
    EXPECT_TRUE(word & VNFileFlag::UserImmutable);
    EXPECT_EQ(VNReadTestFile(run.target("d5/s2/h3")), "linked");
    // root, 24 folders, 360 files, three names of one file
    EXPECT_THAT(run.lastLine(), HasSubstr(": 388 items ("));
    EXPECT_THAT(run.lastLine(), HasSubstr(", 2 cloned items, 0 symlinked items"));
    ASSERT_GE(run.progress.size(), 2u);
    for (size_t i = 0; i + 1 < run.progress.size(); ++i) ASSERT_EQ(run.progress[i].first, i) << "report " << i;
    EXPECT_EQ(run.progress.back(), run.progress.end()[-2]);
    ASSERT_TRUE(flags->setFlags(run.tmpl("d2/s1"), 0).ok());
  }
}

// A copy that fails on a worker ends the walk with that item's errno and
// path, logged once; items already out still come back and are counted.
TEST(CopyEngine, AFailureOnAWorkerEndsTheWalkWithThatItemsErrorAndPath) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  TemplateRun run(image->mountPoint());
  run.patterns("");
  for (int i = 0; i < 8; ++i)
    for (int k = 0; k < 40; ++k)
      VNWriteTestFile(run.tmpl("d" + std::to_string(i) + "/f" + std::to_string(k)), std::string(4096, 'x'));
  auto faulty = std::make_shared<VNFaultyFileSystemCalls>();
  faulty->failNth(VNFaultyFileSystemCalls::Call::CopyRange, 150, EIO);
  VNPlatformOverride<VNFileSystemCalls> calls(faulty);
  CopyThreads copyThreads(4);
  VNError error;
  EXPECT_FALSE(run.copy(&error));
  EXPECT_TRUE(error.isPOSIX(EIO));
  ASSERT_THAT(error.filePath(), ::testing::StartsWith(run.target("d")));
  EXPECT_FALSE(fs::exists(error.filePath())) << "the half-made copy is removed";
  std::vector<std::string> failures;
  std::copy_if(run.log.begin(), run.log.end(), std::back_inserter(failures),
               [](const std::string& line) { return line.starts_with("could not copy "); });
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_THAT(failures[0], HasSubstr(" -> " + error.filePath() + ": 5 ("));
  EXPECT_THAT(run.lastLine(), HasSubstr("failed to copy data template from "));
  ASSERT_GE(run.progress.size(), 2u);
  EXPECT_TRUE(std::is_sorted(run.progress.begin(), run.progress.end()));
  EXPECT_LT(run.progress.back().first, 1u + 8u + 8u * 40u) << "the failed file is never counted";
}
