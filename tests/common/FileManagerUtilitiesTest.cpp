#include "common/VNFileManagerUtilities.h"
#include "support/VNTest.h"

using namespace VNUtilities;

namespace {

void makeTree(const std::string& root, int folders, int filesPerFolder) {
  for (int d = 0; d < folders; ++d)
    for (int f = 0; f < filesPerFolder; ++f)
      VNWriteTestFile(root + "/d" + std::to_string(d) + "/f" + std::to_string(f), "x");
}

}  // namespace

TEST(SafeFileExists, DoesNotFollowTheFinalLink) {
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  ASSERT_EQ(::symlink("missing-target", (dir / "dangling").c_str()), 0);
  EXPECT_TRUE(VN_safeFileExistsAtPath(VNURL(dir / "file")));
  EXPECT_TRUE(VN_safeFileExistsAtPath(VNURL(dir / "dangling")));
  for (const std::string& path : {dir / "missing", dir / "file/child", dir / "dangling/child",
                                  dir.path() + std::string("\0/file", 6), dir / std::string(PATH_MAX + 10, 'n')})
    EXPECT_FALSE(VN_safeFileExistsAtPath(VNURL(path))) << path;
  EXPECT_FALSE(VN_safeFileExistsAtPath(VNFileURL()));
}

// A missing item (or parent) counts as removed and clears the error; a
// tree goes whole, an unwritable folder too, and links are removed, never
// followed.
TEST(RemoveItemIfExists, RemovesTreesButNeverFollowsLinks) {
  VNTestDir dir;
  VNError error = VNError::posix(EIO, "stale", "earlier");
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(VNURL(dir / "missing"), &error));
  EXPECT_TRUE(error.domain().empty());
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(VNURL(dir / "missing/child")));

  makeTree(dir / "tree", 3, 4);
  VNWriteTestFile(dir / "outside/sentinel", "keep");
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "tree/d0/link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "toplink").c_str()), 0);
  VNMakeFolders(dir / "tree/name\nwith newline", 0);
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(VNURL(dir / "tree"), &error)) << error.description();
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(VNURL(dir / "toplink"), &error));
  EXPECT_EQ(VNNamesIn(dir.path()), std::set<std::string>{"outside"});
  EXPECT_TRUE(VNExists(dir / "outside/sentinel"));
}

// An immutable file inside stops the removal with its own EPERM and path;
// a mount point cannot be removed; both are reported, not hidden.
TEST(RemoveItemIfExists, FailureCarriesTheUnderlyingPosixError) {
  VNError error;
  EXPECT_FALSE(VN_removeItemIfExistsAtURL(VNURL(std::string("/tmp\0/x", 7)), &error));
  EXPECT_TRUE(error.underlyingError() && error.underlyingError()->isPOSIX(EINVAL));

  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  std::string tree = *image / "tree", locked = tree + "/d1/locked";
  makeTree(tree, 2, 2);
  VNWriteTestFile(locked, "x");
  ASSERT_EQ(VNRunCommand("chattr +i '" + locked + "'"), 0);
  EXPECT_FALSE(VN_removeItemIfExistsAtURL(VNURL(tree), &error));
  EXPECT_EQ(error.filePath(), tree);
  ASSERT_TRUE(error.underlyingError());
  EXPECT_TRUE(error.underlyingError()->isPOSIX(EPERM)) << error.description();
  EXPECT_EQ(error.underlyingError()->filePath(), locked);
  EXPECT_TRUE(VNExists(locked));
  ASSERT_EQ(VNRunCommand("chattr -i '" + locked + "'"), 0);
  EXPECT_FALSE(VN_removeItemIfExistsAtURL(VNURL(image->mountPoint()), &error));
  EXPECT_TRUE(error.underlyingError()->isPOSIX(EBUSY)) << error.description();
}

TEST(RemoveItemIfExists, ConcurrentRemovalsOfOneTreeAllSucceed) {
  VNTestDir dir;
  makeTree(dir / "tree", 20, 50);
  std::atomic<int> succeeded{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      VNError error;
      if (VN_removeItemIfExistsAtURL(VNURL(dir / "tree"), &error)) ++succeeded;
      else ADD_FAILURE() << error.description();
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(succeeded, 4);
  EXPECT_FALSE(VNExists(dir / "tree"));
}
