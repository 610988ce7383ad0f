#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/internal/VNTreeWalk.h"
#include "support/VNDeepTree.h"
#include "support/VNTestDir.h"

namespace fs = std::filesystem;

namespace {

struct Seen {
  int kind;
  int error;
  std::string path;
};

// Reads the rest of `walk`.
std::vector<Seen> readAll(VNTreeWalk& walk) {
  std::vector<Seen> seen;
  while (const VNTreeEntry* entry = walk.read()) seen.push_back({entry->kind, entry->error, entry->path});
  return seen;
}

// Replaces the folder `path` by a symbolic link to where it is moved.
void swapForLink(const std::string& path, const std::string& movedTo) {
  ASSERT_EQ(::rename(path.c_str(), movedTo.c_str()), 0);
  ASSERT_EQ(::symlink(movedTo.c_str(), path.c_str()), 0);
}

}  // namespace

// A folder above the deepest open ones is moved out of the tree, a link to
// it left in its place: climbing back, the walk reports the folder that is
// no longer above it, skips the rest, and reads nothing outside the tree.
TEST(VNTreeWalk, AFolderSwappedForALinkWhileClosedIsReportedNotFollowed) {
  VNTestDir dir;
  const std::string root = dir.path() + "/tree";
  fs::create_directories(root);
  fs::create_directories(dir.path() + "/elsewhere/outside");
  VNDeepTree tree(root, 3 * VNFolderTrail::kOpenFolders, 1000);
  VNTreeWalk walk(VNAtPath(root.c_str()), root);
  while (const VNTreeEntry* entry = walk.read())
    if (entry->kind == FTS_F) break;
  swapForLink(root + "/d/d/d", dir.path() + "/elsewhere/moved");

  std::vector<Seen> seen = readAll(walk);
  auto failure = std::find_if(seen.begin(), seen.end(), [](const Seen& item) { return item.kind == FTS_ERR; });
  ASSERT_NE(failure, seen.end());
  EXPECT_EQ(failure->path, root + "/d/d");
  EXPECT_EQ(failure->error, ESTALE);
  for (const Seen& item : seen) {
    EXPECT_EQ(item.path.find("outside"), std::string::npos) << item.path;
    EXPECT_NE(item.path, root + "/d/d/d") << "completed a folder whose parent changed";
  }
}

// A folder swapped for a link between the reading of its parent and its
// own is reported as unreadable and not entered.
TEST(VNTreeWalk, AFolderSwappedForALinkBeforeItIsEnteredIsNotEntered) {
  VNTestDir dir;
  fs::create_directories(dir.path() + "/tree/a");
  fs::create_directories(dir.path() + "/elsewhere/inside");
  VNTreeWalk walk(VNAtPath((dir.path() + "/tree").c_str()), dir.path() + "/tree");
  ASSERT_EQ(walk.read()->kind, FTS_D);
  ASSERT_EQ(walk.read()->kind, FTS_D);
  ::rmdir((dir.path() + "/tree/a").c_str());
  ASSERT_EQ(::symlink((dir.path() + "/elsewhere").c_str(), (dir.path() + "/tree/a").c_str()), 0);

  std::vector<Seen> seen = readAll(walk);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].kind, FTS_DNR);
  EXPECT_EQ(seen[0].path, dir.path() + "/tree/a");
  EXPECT_EQ(seen[1].kind, FTS_DP);
  EXPECT_EQ(seen[1].path, dir.path() + "/tree");
}
