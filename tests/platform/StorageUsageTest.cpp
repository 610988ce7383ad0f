#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "platform/VNStorageUsage.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace {

using Type = VNStorageValues::Type;

struct Walked {
  std::map<std::uint64_t, VNStorageValues> byInode;
  std::vector<VNError> errors;
  size_t visits = 0;
};

Walked walk(const std::string& root) {
  Walked walked;
  VNStorageUsage::makeDefault()->walk(
      root,
      [&](const VNStorageValues& values) {
        ++walked.visits;
        walked.byInode[values.inode] = values;
        return true;
      },
      [&](const VNError& error) {
        walked.errors.push_back(error);
        return true;
      });
  return walked;
}

std::uint64_t inodeOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st.st_ino;
}

// Every item below the root once, the root itself not; a link to a folder is
// the link, and nothing behind it is visited.
TEST(VNStorageUsage, WalkVisitsEachItemOnceWithoutFollowingLinks) {
  VNTestDir dir, outside;
  VNWriteTestFile(outside / "hidden", "never visited");
  std::filesystem::create_directories(dir / "a/b/c");
  VNWriteTestFile(dir / "a/b/c/deep", std::string(10000, 'x'));
  VNWriteTestFile(dir / "a/.dot", "");
  ::symlink(outside.path().c_str(), (dir / "a/b/link").c_str());
  ::mkfifo((dir / "fifo").c_str(), 0600);

  Walked walked = walk(dir.path());
  EXPECT_TRUE(walked.errors.empty());
  EXPECT_EQ(walked.visits, 7u);  // a, a/b, a/b/c, deep, .dot, link, fifo
  EXPECT_EQ(walked.byInode.count(inodeOf(outside / "hidden")), 0u);
  EXPECT_EQ(walked.byInode.count(inodeOf(dir.path())), 0u);

  const VNStorageValues& folder = walked.byInode.at(inodeOf(dir / "a/b"));
  EXPECT_EQ(folder.type, Type::Directory);
  EXPECT_EQ(folder.linkCount, 1u) << "a folder with subfolders is still one name";
  EXPECT_FALSE(folder.fileSize);
  EXPECT_FALSE(folder.allocatedSize);

  struct stat st {};
  ::lstat((dir / "a/b/c/deep").c_str(), &st);
  const VNStorageValues& deep = walked.byInode.at(st.st_ino);
  EXPECT_EQ(deep.type, Type::Regular);
  EXPECT_EQ(deep.fileSize, 10000u);
  EXPECT_EQ(deep.allocatedSize, std::uint64_t(st.st_blocks) * 512);
  EXPECT_FALSE(deep.mayShareContent);
  EXPECT_EQ(walked.byInode.at(inodeOf(dir / "a/b/link")).type, Type::SymbolicLink);
  EXPECT_EQ(walked.byInode.at(inodeOf(dir / "fifo")).type, Type::Other);
}

TEST(VNStorageUsage, WalkReportsUnopenableRootsAndStopsWhenAsked) {
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  ::symlink(dir.path().c_str(), (dir / "link").c_str());
  for (const std::string& root : {dir / "missing", dir / "file", dir / "link"}) {
    Walked walked = walk(root);
    EXPECT_EQ(walked.visits, 0u) << root;
    ASSERT_EQ(walked.errors.size(), 1u) << root;
    EXPECT_EQ(walked.errors[0].filePath(), root);
    EXPECT_NE(walked.errors[0].localizedDescription().find("cannot open folder"),
              std::string::npos);
  }

  for (int i = 0; i < 50; ++i) std::filesystem::create_directories(dir / ("d/" + std::to_string(i)));
  size_t visits = 0;
  VNStorageUsage::makeDefault()->walk(
      dir / "d", [&](const VNStorageValues&) { return ++visits < 10; },
      [](const VNError&) { return true; });
  EXPECT_EQ(visits, 10u);
}

// Deeper than any fixed-size path buffer or a handful of descriptors.
TEST(VNStorageUsage, WalkGoesThroughDeepTrees) {
  VNTestDir dir;
  std::string relative;
  for (int depth = 0; depth < 300; ++depth) relative += "d/";
  std::filesystem::create_directories(dir / relative);
  VNWriteTestFile(dir / (relative + "leaf"), "leaf");
  Walked walked = walk(dir.path());
  EXPECT_TRUE(walked.errors.empty());
  EXPECT_EQ(walked.visits, 301u);
}

TEST(VNStorageUsage, ValuesOfItemDoNotFollowLinks) {
  VNTestDir dir;
  ::symlink("/", (dir / "root-link").c_str());
  auto storage = VNStorageUsage::makeDefault();
  VNError error;
  EXPECT_EQ(storage->valuesOfItem(dir / "root-link", &error).type, Type::SymbolicLink);
  EXPECT_EQ(storage->valuesOfItem(dir.path()).type, Type::Directory);
  VNStorageValues missing = storage->valuesOfItem(dir / "missing", &error);
  EXPECT_EQ(missing.type, Type::Unknown);
  EXPECT_FALSE(missing.fileSize);
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir / "missing");
}

// On file systems that clone, a clone and its original carry one content
// identifier; a plain copy, an empty file and an inline-sized file none.
TEST(VNStorageUsage, ClonesShareAContentIdentifier) {
  for (auto kind : {VNLoopImage::Kind::XFS, VNLoopImage::Kind::Btrfs}) {
    VN_MOUNT_OR_SKIP(image, kind, 300u << 20);
    std::string original = *image / "original";
    ASSERT_EQ(VNRunCommand("head -c 1048576 /dev/urandom > " + original), 0);
    ASSERT_EQ(VNRunCommand("cp --reflink=always " + original + " " + *image / "clone"), 0);
    ASSERT_EQ(VNRunCommand("cp --reflink=never " + original + " " + *image / "copy"), 0);
    VNWriteTestFile(*image / "empty", "");
    auto storage = VNStorageUsage::makeDefault();
    VNStorageValues a = storage->valuesOfItem(original);
    VNStorageValues b = storage->valuesOfItem(*image / "clone");
    ASSERT_TRUE(a.mayShareContent) << VNLoopImage::name(kind);
    ASSERT_TRUE(a.contentIdentifier && b.contentIdentifier);
    EXPECT_EQ(*a.contentIdentifier, *b.contentIdentifier);
    EXPECT_FALSE(storage->valuesOfItem(*image / "copy").mayShareContent);
    EXPECT_FALSE(storage->valuesOfItem(*image / "empty").contentIdentifier);

    Walked walked = walk(image->mountPoint());
    EXPECT_EQ(walked.byInode.at(inodeOf(*image / "clone")).contentIdentifier, a.contentIdentifier)
        << "the walk reads the same identifier";
  }
}

// Large folders on a file system that clones are read by two threads: every
// entry still comes once, in one piece, on the caller's thread.
TEST(VNStorageUsage, LargeFoldersReadByTwoThreadsGiveEachEntryOnce) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  std::string original = *image / "big/original";
  std::filesystem::create_directories(*image / "big");
  ASSERT_EQ(VNRunCommand("head -c 65536 /dev/urandom > " + original), 0);
  ASSERT_EQ(VNRunCommand("cd " + *image / "big" +
                         " && for i in $(seq 150); do cp --reflink=always original c$i;"
                         " head -c 5000 /dev/zero > p$i; done"),
            0);
  std::uint64_t shared = *VNStorageUsage::makeDefault()->valuesOfItem(original).contentIdentifier;
  auto caller = std::this_thread::get_id();
  bool sameThread = true;
  Walked walked;
  VNStorageUsage::makeDefault()->walk(
      image->mountPoint(),
      [&](const VNStorageValues& values) {
        sameThread = sameThread && std::this_thread::get_id() == caller;
        ++walked.visits;
        walked.byInode[values.inode] = values;
        return true;
      },
      [](const VNError&) { return true; });
  EXPECT_TRUE(sameThread);
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
  Walked walked = walk(image->mountPoint());
  for (const auto& [inode, values] : walked.byInode) {
    EXPECT_FALSE(values.mayShareContent) << inode;
    EXPECT_FALSE(values.contentIdentifier) << inode;
  }
}

}  // namespace
