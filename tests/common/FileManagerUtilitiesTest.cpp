#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "common/VNFileManagerUtilities.h"
#include "foundation/VNError.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

using namespace VNUtilities;

namespace {

VNFileURL url(const std::string& path) { return VNFileURL::fileURLWithPath(path); }

bool present(const std::string& path) {
  struct stat item {};
  return ::lstat(path.c_str(), &item) == 0;
}

void makeTree(const std::string& root, int folders, int filesPerFolder) {
  ASSERT_EQ(::mkdir(root.c_str(), 0755), 0);
  for (int d = 0; d < folders; ++d) {
    std::string folder = root + "/d" + std::to_string(d);
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    for (int f = 0; f < filesPerFolder; ++f) VNWriteTestFile(folder + "/f" + std::to_string(f), "x");
  }
}

}  // namespace

TEST(SafeFileExists, DoesNotFollowTheFinalLink) {
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  ASSERT_EQ(::symlink("missing-target", (dir / "dangling").c_str()), 0);
  EXPECT_TRUE(VN_safeFileExistsAtPath(url(dir / "file")));
  EXPECT_TRUE(VN_safeFileExistsAtPath(url(dir / "dangling")));
  EXPECT_FALSE(VN_safeFileExistsAtPath(url(dir / "missing")));
  EXPECT_FALSE(VN_safeFileExistsAtPath(url(dir / "file/child")));  // ENOTDIR
  EXPECT_FALSE(VN_safeFileExistsAtPath(url(dir / "dangling/child")));
  EXPECT_FALSE(VN_safeFileExistsAtPath(url(dir.path() + std::string("\0/file", 6))));
  EXPECT_FALSE(VN_safeFileExistsAtPath(url(dir / std::string(PATH_MAX + 10, 'n'))));
  EXPECT_FALSE(VN_safeFileExistsAtPath(VNFileURL()));
}

TEST(RemoveItemIfExists, MissingItemCountsAsRemoved) {
  VNTestDir dir;
  VNError error = VNError::posix(EIO, "stale", "earlier");
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(url(dir / "missing"), &error));
  EXPECT_TRUE(error.domain().empty());
  // A missing parent is missing too.
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(url(dir / "missing/child")));
}

TEST(RemoveItemIfExists, RemovesTreesButNeverFollowsLinks) {
  VNTestDir dir;
  makeTree(dir / "tree", 3, 4);
  ASSERT_EQ(::mkdir((dir / "outside").c_str(), 0755), 0);
  VNWriteTestFile(dir / "outside/sentinel", "keep");
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "tree/d0/link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "toplink").c_str()), 0);
  std::string odd = dir / "tree/name\nwith newline";
  ASSERT_EQ(::mkdir(odd.c_str(), 0), 0);  // no permissions: root removes it anyway
  VNError error;
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(url(dir / "tree"), &error)) << error.description();
  EXPECT_FALSE(present(dir / "tree"));
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(url(dir / "toplink"), &error));
  EXPECT_FALSE(present(dir / "toplink"));
  EXPECT_TRUE(present(dir / "outside/sentinel"));
}

TEST(RemoveItemIfExists, FailureCarriesTheUnderlyingPosixError) {
  VNError error;
  EXPECT_FALSE(VN_removeItemIfExistsAtURL(url(std::string("/tmp\0/x", 7)), &error));
  EXPECT_TRUE(error.underlyingError() && error.underlyingError()->isPOSIX(EINVAL));

  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  std::string tree = *image / "tree";
  makeTree(tree, 2, 2);
  std::string locked = tree + "/d1/locked";
  VNWriteTestFile(locked, "x");
  ASSERT_EQ(VNRunCommand("chattr +i '" + locked + "'"), 0);
  EXPECT_FALSE(VN_removeItemIfExistsAtURL(url(tree), &error));
  EXPECT_EQ(error.filePath(), tree);
  ASSERT_TRUE(error.underlyingError());
  EXPECT_TRUE(error.underlyingError()->isPOSIX(EPERM)) << error.description();
  EXPECT_EQ(error.underlyingError()->filePath(), locked);
  EXPECT_TRUE(present(locked));
  ASSERT_EQ(VNRunCommand("chattr -i '" + locked + "'"), 0);
  EXPECT_TRUE(VN_removeItemIfExistsAtURL(url(tree), &error));
  EXPECT_FALSE(present(tree));
  // A mount point cannot be removed: the failure is reported, not hidden.
  EXPECT_FALSE(VN_removeItemIfExistsAtURL(url(image->mountPoint()), &error));
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
      if (VN_removeItemIfExistsAtURL(url(dir / "tree"), &error)) ++succeeded;
      else ADD_FAILURE() << error.description();
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(succeeded, 4);
  EXPECT_FALSE(present(dir / "tree"));
}
