#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/VNShove.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace fs = std::filesystem;

namespace {

struct ShoveRun {
  int result;
  std::vector<std::pair<int, std::string>> lines;
};

ShoveRun runShove(const std::string& from, const std::string& to, std::uint32_t options) {
  ShoveRun run{};
  run.result = VNShove::makeDefault()->shove(from, to, options, [&](int level, const std::string& text) {
    run.lines.emplace_back(level, text);
  });
  return run;
}

constexpr std::uint32_t kInstall = VNShoveMergeFolders | VNShoveReplaceItems;

class ShoveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir / "src");
    fs::create_directories(dir / "dst");
  }
  std::string src(const std::string& rel = "") const { return dir / ("src/" + rel); }
  std::string dst(const std::string& rel = "") const { return dir / ("dst/" + rel); }
  VNTestDir dir;
};

}  // namespace

TEST_F(ShoveTest, MergesIntoExistingFoldersAndLeavesForeignItemsAlone) {
  fs::create_directories(dst("Users/alice"));
  VNWriteTestFile(dst("Users/alice/notes.txt"), "mine", 0600);
  ::chmod(dst("Users").c_str(), 0751);
  fs::create_directories(src("Users/Shared"));
  VNWriteTestFile(src("Users/Shared/readme"), "template");
  fs::create_directories(src("Library/Caches"));
  ::symlink("../nowhere", src("Library/link").c_str());

  ShoveRun run = runShove(src(), dst(), kInstall);
  ASSERT_EQ(run.result, 0);
  EXPECT_TRUE(run.lines.empty());
  EXPECT_EQ(VNReadTestFile(dst("Users/alice/notes.txt")), "mine");
  EXPECT_EQ(VNReadTestFile(dst("Users/Shared/readme")), "template");
  EXPECT_TRUE(fs::is_directory(dst("Library/Caches")));
  EXPECT_EQ(fs::read_symlink(dst("Library/link")), "../nowhere");
  struct stat st {};
  ASSERT_EQ(::stat(dst("Users").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0751u) << "a merged folder keeps its own attributes";
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
  fs::create_directories(dst("folder/keep"));
  EXPECT_EQ(runShove(src(), dst(), kInstall).result, EISDIR);
  EXPECT_TRUE(fs::is_directory(dst("folder/keep")));
  EXPECT_EQ(VNReadTestFile(src("folder")), "a file where a folder is") << "unmoved item stays in the source";
}

TEST_F(ShoveTest, NeverFollowsADestinationLinkOutOfTheTree) {
  fs::create_directories(dir / "outside");
  VNWriteTestFile(dir / "outside/sentinel", "untouched");
  ::symlink((dir / "outside").c_str(), dst("Library").c_str());
  fs::create_directories(src("Library"));
  VNWriteTestFile(src("Library/sentinel"), "overwritten?");

  ASSERT_EQ(runShove(src(), dst(), kInstall).result, 0);
  EXPECT_EQ(VNReadTestFile(dir / "outside/sentinel"), "untouched");
  EXPECT_FALSE(fs::is_symlink(dst("Library"))) << "the link is replaced by the template's folder";
  EXPECT_EQ(VNReadTestFile(dst("Library/sentinel")), "overwritten?");
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
