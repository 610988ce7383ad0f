#include "platform/VNStorageUsage.h"
#include "support/VNTest.h"

namespace {

using Type = VNStorageValues::Type;

struct Walked {
  std::map<std::uint64_t, VNStorageValues> byInode;
  std::vector<VNError> errors;
  size_t visits = 0;
  bool onCallersThread = true;
};

Walked walk(const std::string& root) {
  Walked walked;
  const auto caller = std::this_thread::get_id();
  VNStorageUsage::makeDefault()->walk(
      root,
      [&](const VNStorageValues& values) {
        ++walked.visits;
        walked.byInode[values.inode] = values;
        walked.onCallersThread = walked.onCallersThread && std::this_thread::get_id() == caller;
        return true;
      },
      [&](const VNError& error) {
        walked.errors.push_back(error);
        return true;
      });
  return walked;
}

std::uint64_t inodeOf(const std::string& path) { return VNStatOf(path).st_ino; }

// Every item below the root once, the root itself not; a link to a folder is
// the link, and nothing behind it is visited.
TEST(VNStorageUsage, WalkVisitsEachItemOnceWithoutFollowingLinks) {
  VNTestDir dir, outside;
  VNWriteTestFile(outside / "hidden", "never visited");
  VNWriteTestFile(dir / "a/b/c/deep", std::string(10000, 'x'));
  VNWriteTestFile(dir / "a/.dot", "");
  ASSERT_EQ(::symlink(outside.path().c_str(), (dir / "a/b/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  Walked walked = walk(dir.path());
  EXPECT_TRUE(walked.errors.empty());
  EXPECT_EQ(walked.visits, 7u);  // a, a/b, a/b/c, deep, .dot, link, fifo
  EXPECT_EQ(walked.byInode.count(inodeOf(outside / "hidden")), 0u);
  EXPECT_EQ(walked.byInode.count(inodeOf(dir.path())), 0u);
  const VNStorageValues& folder = walked.byInode.at(inodeOf(dir / "a/b"));
  EXPECT_EQ(folder.type, Type::Directory);
  EXPECT_EQ(folder.linkCount, 1u) << "a folder with subfolders is still one name";
  EXPECT_FALSE(folder.fileSize || folder.allocatedSize);
  const VNStorageValues& deep = walked.byInode.at(inodeOf(dir / "a/b/c/deep"));
  EXPECT_EQ(deep.type, Type::Regular);
  EXPECT_EQ(deep.fileSize, 10000u);
  EXPECT_EQ(deep.allocatedSize, std::uint64_t(VNStatOf(dir / "a/b/c/deep").st_blocks) * 512);
  EXPECT_FALSE(deep.mayShareContent);
  EXPECT_EQ(walked.byInode.at(inodeOf(dir / "a/b/link")).type, Type::SymbolicLink);
  EXPECT_EQ(walked.byInode.at(inodeOf(dir / "fifo")).type, Type::Other);
}

// A root that cannot be opened as a folder is one error naming it; a visit
// that returns false ends the walk.
TEST(VNStorageUsage, WalkReportsUnopenableRootsAndStopsWhenAsked) {
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "link").c_str()), 0);
  for (const std::string& root : {dir / "missing", dir / "file", dir / "link"}) {
    Walked walked = walk(root);
    EXPECT_EQ(walked.visits, 0u) << root;
    ASSERT_EQ(walked.errors.size(), 1u) << root;
    EXPECT_EQ(walked.errors[0].filePath(), root);
    EXPECT_NE(walked.errors[0].localizedDescription().find("cannot open folder"), std::string::npos);
  }
  for (int i = 0; i < 50; ++i) VNMakeFolders(dir / ("d/" + std::to_string(i)));
  size_t visits = 0;
  VNStorageUsage::makeDefault()->walk(dir / "d", [&](const VNStorageValues&) { return ++visits < 10; },
                                      [](const VNError&) { return true; });
  EXPECT_EQ(visits, 10u);
}

TEST(VNStorageUsage, ValuesOfItemDoNotFollowLinks) {
  VNTestDir dir;
  ASSERT_EQ(::symlink("/", (dir / "root-link").c_str()), 0);
  auto storage = VNStorageUsage::makeDefault();
  VNError error;
  EXPECT_EQ(storage->valuesOfItem(dir / "root-link", &error).type, Type::SymbolicLink);
  EXPECT_EQ(storage->valuesOfItem(dir.path(), &error).type, Type::Directory);
  EXPECT_TRUE(error.domain().empty()) << "no error for items that are there";
  VNStorageValues missing = storage->valuesOfItem(dir / "missing", &error);
  EXPECT_EQ(missing.type, Type::Unknown);
  EXPECT_FALSE(missing.fileSize);
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir / "missing");
}

// Large folders on a file system that clones are read by two threads: every
// entry still comes once, in one piece, on the caller's thread; the clones
// carry their original's content identifier, plain files none.
TEST(VNStorageUsage, LargeFoldersReadByTwoThreadsGiveEachEntryOnce) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  std::string original = *image / "big/original";
  VNMakeFolders(*image / "big");
  ASSERT_EQ(VNRunCommand("head -c 65536 /dev/urandom > " + original), 0);
  ASSERT_EQ(VNRunCommand("cd " + *image / "big" +
                         " && for i in $(seq 150); do cp --reflink=always original c$i; head -c 5000 /dev/zero > p$i; done"),
            0);
  std::uint64_t shared = *VNStorageUsage::makeDefault()->valuesOfItem(original).contentIdentifier;
  Walked walked = walk(image->mountPoint());
  EXPECT_TRUE(walked.onCallersThread);
  EXPECT_EQ(walked.visits, walked.byInode.size());
  size_t clones = 0, plain = 0;
  for (const auto& [inode, values] : walked.byInode) {
    if (values.type != Type::Regular) continue;
    if (values.contentIdentifier) {
      EXPECT_EQ(*values.contentIdentifier, shared);
      ++clones;
    } else {
      EXPECT_EQ(values.fileSize, 5000u);
      ++plain;
    }
  }
  EXPECT_EQ(clones, 151u);
  EXPECT_EQ(plain, 150u);
}

// A file system that cannot clone makes no file look shared.
TEST(VNStorageUsage, NothingSharesOnExt4) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 64u << 20);
  ASSERT_EQ(VNRunCommand("head -c 65536 /dev/urandom > " + *image / "file"), 0);
  ASSERT_EQ(VNRunCommand("cp " + *image / "file" + " " + *image / "copy"), 0);
  for (const auto& [inode, values] : walk(image->mountPoint()).byInode) {
    EXPECT_FALSE(values.mayShareContent) << inode;
    EXPECT_FALSE(values.contentIdentifier) << inode;
  }
}

}  // namespace
