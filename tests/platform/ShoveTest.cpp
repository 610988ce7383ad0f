#include "platform/VNShove.h"
#include "support/VNTest.h"

namespace fs = std::filesystem;

namespace {

struct ShoveRun {
  int result;
  std::vector<std::pair<int, std::string>> lines;
};

ShoveRun runShove(const std::string& from, const std::string& to, std::uint32_t options,
                  const std::string& keep = "") {
  ShoveRun run{};
  run.result = VNShove::makeDefault()->shove({from, to, options, keep}, [&](int level, const std::string& text) {
    run.lines.emplace_back(level, text);
  });
  return run;
}

constexpr std::uint32_t kInstall = VNShoveMergeFolders | VNShoveReplaceItems;

class ShoveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    VNMakeFolders(src());
    VNMakeFolders(dst());
  }
  std::string src(const std::string& rel = "") const { return dir / ("src/" + rel); }
  std::string dst(const std::string& rel = "") const { return dir / ("dst/" + rel); }
  VNTestDir dir;
};

}  // namespace

TEST_F(ShoveTest, MergesIntoExistingFoldersAndLeavesForeignItemsAlone) {
  VNWriteTestFile(dst("Users/alice/notes.txt"), "mine", 0600);
  VNMakeFolders(dst("Users"), 0751);
  VNWriteTestFile(src("Users/Shared/readme"), "template");
  VNMakeFolders(src("Library/Caches"));
  ::symlink("../nowhere", src("Library/link").c_str());

  ShoveRun run = runShove(src(), dst(), kInstall);
  ASSERT_EQ(run.result, 0);
  EXPECT_TRUE(run.lines.empty());
  EXPECT_EQ(VNReadTestFile(dst("Users/alice/notes.txt")), "mine");
  EXPECT_EQ(VNReadTestFile(dst("Users/Shared/readme")), "template");
  EXPECT_TRUE(fs::is_directory(dst("Library/Caches")));
  EXPECT_EQ(fs::read_symlink(dst("Library/link")), "../nowhere");
  EXPECT_THAT(dst("Users"), HasMode(0751)) << "a merged folder keeps its own attributes";
  EXPECT_FALSE(fs::exists(src("Library"))) << "moved whole, not copied";
}

TEST_F(ShoveTest, ReplacesFilesOnlyWhenAskedAndNeverAFolderByAFile) {
  VNWriteTestFile(src("a"), "new");
  VNWriteTestFile(dst("a"), "old");
  ShoveRun refused = runShove(src(), dst(), VNShoveMergeFolders);
  EXPECT_EQ(refused.result, EEXIST);
  ASSERT_EQ(refused.lines.size(), 1u);
  EXPECT_EQ(refused.lines[0].first, VNShoveLogError);
  EXPECT_NE(refused.lines[0].second.find(dst("a")), std::string::npos);
  EXPECT_EQ(VNReadTestFile(dst("a")), "old");

  EXPECT_EQ(runShove(src(), dst(), kInstall).result, 0);
  EXPECT_EQ(VNReadTestFile(dst("a")), "new");

  VNWriteTestFile(src("folder"), "a file where a folder is");
  VNMakeFolders(dst("folder/keep"));
  EXPECT_EQ(runShove(src(), dst(), kInstall).result, EISDIR);
  EXPECT_TRUE(fs::is_directory(dst("folder/keep")));
  EXPECT_EQ(VNReadTestFile(src("folder")), "a file where a folder is") << "unmoved item stays in the source";
}

TEST_F(ShoveTest, NeverFollowsADestinationLinkOutOfTheTree) {
  VNWriteTestFile(dir / "outside/sentinel", "untouched");
  ::symlink((dir / "outside").c_str(), dst("Library").c_str());
  VNWriteTestFile(src("Library/sentinel"), "overwritten?");

  ASSERT_EQ(runShove(src(), dst(), kInstall).result, 0);
  EXPECT_EQ(VNReadTestFile(dir / "outside/sentinel"), "untouched");
  EXPECT_FALSE(fs::is_symlink(dst("Library"))) << "the link is replaced by the template's folder";
  EXPECT_EQ(VNReadTestFile(dst("Library/sentinel")), "overwritten?");
}

// With a keep folder nothing of the destination is deleted: each replaced
// item, a folder where the source has a file included, moves there at its
// own path and is logged; an item the same as the incoming one just goes.
TEST_F(ShoveTest, KeepsWhatItReplacesUnlessItIsTheSameItem) {
  VNWriteTestFile(src("a"), "new");
  VNWriteTestFile(dst("a"), "older");
  VNWriteTestFile(src("folder"), "a file where a folder is");
  VNWriteTestFile(dst("folder/inner/work"), "the user's");
  VNMakeFolders(src("sub"));
  VNMakeFolders(dst("sub"));
  ::symlink("target", src("sub/link").c_str());
  VNWriteTestFile(dst("sub/link"), "a file where a link is");
  VNWriteTestFile(src("same"), "template");
  VNWriteTestFile(dst("same"), "template");
  const struct stat source = VNStatOf(src("same"));
  const struct timespec times[2] = {source.st_atim, source.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, dst("same").c_str(), times, 0), 0);

  ShoveRun run = runShove(src(), dst(), kInstall, ".kept/run");
  ASSERT_EQ(run.result, 0);
  EXPECT_EQ(VNReadTestFile(dst("a")), "new");
  EXPECT_EQ(VNReadTestFile(dst("folder")), "a file where a folder is");
  EXPECT_EQ(fs::read_symlink(dst("sub/link")), "target");
  EXPECT_EQ(VNReadTestFile(dst(".kept/run/a")), "older");
  EXPECT_EQ(VNReadTestFile(dst(".kept/run/folder/inner/work")), "the user's");
  EXPECT_EQ(VNReadTestFile(dst(".kept/run/sub/link")), "a file where a link is");
  EXPECT_FALSE(fs::exists(dst(".kept/run/same"))) << "the same item is not kept";
  EXPECT_THAT(dst(".kept/run/sub"), HasMode(0700)) << "replaced items may be private";
  ASSERT_EQ(run.lines.size(), 3u);
  for (const auto& [level, text] : run.lines) {
    EXPECT_EQ(level, VNShoveLogInfo);
    EXPECT_NE(text.find("is kept at '" + dst(".kept/run/")), std::string::npos) << text;
  }

  VNWriteTestFile(src("a"), "newer");
  ::symlink(dst().c_str(), dst(".kept/elsewhere").c_str());
  ASSERT_EQ(runShove(src(), dst(), kInstall, ".kept/elsewhere").result, ENOTDIR)
      << "a link at the keep folder's place is never followed";
  EXPECT_EQ(VNReadTestFile(dst("a")), "new");
}

TEST_F(ShoveTest, MissingSourceOrDestinationIsReported) {
  EXPECT_EQ(runShove(dir / "absent", dst(), kInstall).result, ENOENT);
  ShoveRun run = runShove(src(), dir / "absent", kInstall);
  EXPECT_EQ(run.result, ENOENT);
  ASSERT_FALSE(run.lines.empty());
  EXPECT_NE(run.lines[0].second.find("absent"), std::string::npos);
}

TEST(ShoveAcrossFileSystems, FailsWithEXDEVAndMovesNothing) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  VNTestDir dir;
  VNWriteTestFile(dir / "item", "stays");
  EXPECT_EQ(runShove(dir.path(), image->mountPoint(), kInstall).result, EXDEV);
  EXPECT_EQ(VNReadTestFile(dir / "item"), "stays");
}
