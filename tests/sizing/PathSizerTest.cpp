#include "platform/VNStorageUsage.h"
#include "platform/VNSystemLog.h"
#include "sizing/VNPathSizer.h"
#include "support/VNDeepTree.h"
#include "support/VNTest.h"

namespace {

using Type = VNStorageValues::Type;

std::uint64_t allocated(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return std::uint64_t(st.st_blocks) * 512;
}

VNFileURL url(const std::string& path) { return VNFileURL::fileURLWithPath(path); }

// Hands the sizer a fixed list of items, as a file system would list them.
class ListedStorage final : public VNStorageUsage {
 public:
  explicit ListedStorage(std::vector<VNStorageValues> items) : items_(std::move(items)) {}
  VNStorageValues valuesOfItem(const std::string&, VNError*) override {
    VNStorageValues folder;
    folder.type = Type::Directory;
    return folder;
  }
  void walk(const std::string&, const Visitor& visit, const ErrorHandler&) override {
    for (const auto& item : items_)
      if (!visit(item)) return;
  }

 private:
  std::vector<VNStorageValues> items_;
};

VNStorageValues item(Type type, std::optional<std::uint64_t> size,
                     std::optional<std::uint64_t> allocatedSize) {
  VNStorageValues values;
  values.type = type;
  values.linkCount = type == Type::Unknown ? 0 : 1;
  values.fileSize = size;
  values.allocatedSize = allocatedSize;
  return values;
}

// Allocated size first, else the logical size, else nothing; an item whose
// values could not be read counts as an item of no size, not as a folder.
TEST(VNPathSizer, SizesFromAllocatedThenLogicalSize) {
  VNPlatformOverride<VNStorageUsage> storage(std::make_shared<ListedStorage>(std::vector{
      item(Type::Regular, 10, 4096), item(Type::Regular, 300, std::nullopt),
      item(Type::Directory, std::nullopt, std::nullopt), item(Type::Unknown, {}, {}),
      item(Type::SymbolicLink, 12, 0), item(Type::Other, std::nullopt, std::nullopt)}));
  std::uint64_t count = 0;
  EXPECT_EQ(VNPathSizer::init()->directorySizeAndCount(&count, url("/anywhere")), 4096u + 300);
  EXPECT_EQ(count, 5u);
}

// Names of one file spread over subfolders count once, folders not at
// all. The sets outlive a walk: the second walk of one sizer skips every
// multiply linked file the first counted, while a fresh sizer starts again.
TEST(VNPathSizer, HardLinkGroupsCountOnceAcrossWalksOfOneSizer) {
  VNTestDir dir;
  VNWriteTestFile(dir / "single", std::string(8192, 's'));
  VNWriteTestFile(dir / "x/three", std::string(5000, 'a'));
  VNMakeFolders(dir / "x/y");
  ASSERT_EQ(::link((dir / "x/three").c_str(), (dir / "x/y/three-b").c_str()), 0);
  ASSERT_EQ(::link((dir / "x/three").c_str(), (dir / "three-c").c_str()), 0);
  auto sizer = VNPathSizer::init();
  std::uint64_t firstCount = 0, secondCount = 0, freshCount = 0;
  std::uint64_t first = sizer->directorySizeAndCount(&firstCount, url(dir.path()));
  EXPECT_EQ(first, allocated(dir / "single") + allocated(dir / "x/three"));
  EXPECT_EQ(firstCount, 2u);
  EXPECT_EQ(sizer->directorySizeAndCount(&secondCount, url(dir.path())), allocated(dir / "single"));
  EXPECT_EQ(secondCount, 1u);
  EXPECT_EQ(VNPathSizer::init()->directorySizeAndCount(&freshCount, url(dir.path())), first);
  EXPECT_EQ(sizer->hardlinkInodes().size(), 1u);
}

TEST(VNPathSizer, SingleItemsMissingPathsAndEmptyURLs) {
  VNTestDir dir;
  VNWriteTestFile(dir / "file", std::string(6000, 'f'));
  VNMakeFolders(dir / "empty/sub/subsub");
  VNWriteTestFile(dir / "target/big", std::string(100000, 'b'));
  ASSERT_EQ(::symlink((dir / "target").c_str(), (dir / "link").c_str()), 0);
  auto sizer = VNPathSizer::init();
  std::uint64_t count = 99;

  EXPECT_EQ(sizer->directorySizeAndCount(&count, url(dir / "file")), allocated(dir / "file"));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(sizer->directorySizeAndCount(&count, url(dir / "empty")), 0u);
  EXPECT_EQ(count, 0u) << "subfolders are walked, not counted";
  EXPECT_EQ(sizer->directorySizeAndCount(&count, url(dir / "link")), allocated(dir / "link"));
  EXPECT_EQ(count, 1u) << "a link to a folder is the link alone";
  EXPECT_EQ(sizer->directorySizeAndCount(&count, url(dir / "missing")), 0u);
  EXPECT_EQ(count, 1u);
  count = 77;
  EXPECT_EQ(sizer->directorySizeAndCount(&count, VNFileURL()), 0u);
  EXPECT_EQ(count, 77u) << "an empty URL leaves the count alone";
  EXPECT_EQ(sizer->directorySizeAndCount(nullptr, url(dir / "file")), allocated(dir / "file"));
  EXPECT_EQ(sizer->fileSizeAtURL(url(dir / "target")), 0u) << "a folder has no size of its own";
}

// Folders that cannot be enumerated go to the general system log, once each,
// and the walk gives what it could read.
TEST(VNPathSizer, EnumerationErrorsGoToTheSystemLog) {
  auto log = std::make_shared<VNRecordingSystemLog>();
  VNPlatformOverride<VNSystemLog> logOverride(log);
  VNTestDir dir;
  VNWriteTestFile(dir / "file", "x");
  std::uint64_t count = 5;
  EXPECT_EQ(VNPathSizer::init()->getTRFSFolderSize(url(dir / "file"), &count), 0u);
  EXPECT_EQ(count, 0u);
  const auto entries = log->entries();
  ASSERT_EQ(entries.size(), 1u);
  const auto& entry = entries[0];
  EXPECT_EQ(entry.level, VNSystemLog::Level::Error);
  EXPECT_EQ(entry.subsystem, "");
  EXPECT_EQ(entry.category, "");
  EXPECT_EQ(entry.text.rfind("FileSizerGetTRFSFolderSize Error Enumerating: Error Domain=", 0), 0u)
      << entry.text;
  EXPECT_NE(entry.text.find(dir / "file"), std::string::npos) << entry.text;
}

// A tree 5,000 folders deep is walked whole with 256 descriptors allowed:
// every file counted, nothing logged.
TEST(VNPathSizer, WalksTreesDeeperThanTheDescriptorLimit) {
  auto log = std::make_shared<VNRecordingSystemLog>();
  VNPlatformOverride<VNSystemLog> logOverride(log);
  VNTestDir dir;
  VNDeepTree tree(dir.path(), 5000, 300);
  std::uint64_t count = 0;
  {
    VNDescriptorLimit limit(256);
    VNPathSizer::init()->getTRFSFolderSize(url(dir.path()), &count);
  }
  EXPECT_EQ(count, tree.files());
  for (const auto& entry : log->entries()) ADD_FAILURE() << entry.text;
}

// Passes the real walk through, calling `atItem` on the walking thread (once)
// when the sizer is handed item number `trigger`, and counting items after it.
class ObservedStorage final : public VNStorageUsage {
 public:
  ObservedStorage(size_t trigger, std::function<void()> atItem)
      : trigger_(trigger), atItem_(std::move(atItem)) {}
  VNStorageValues valuesOfItem(const std::string& path, VNError* error) override {
    return real_->valuesOfItem(path, error);
  }
  void walk(const std::string& root, const Visitor& visit, const ErrorHandler& onError) override {
    size_t seen = 0;
    real_->walk(
        root,
        [&](const VNStorageValues& values) {
          if (++seen == trigger_ && atItem_) std::exchange(atItem_, nullptr)();
          if (seen > trigger_) ++afterTrigger;
          return visit(values);
        },
        onError);
  }
  size_t afterTrigger = 0;

 private:
  std::shared_ptr<VNStorageUsage> real_ = VNStorageUsage::makeDefault();
  size_t trigger_;
  std::function<void()> atItem_;
};

// A cancel from another thread ends the walk within 101 counted items and
// leaves the partial totals; the next call resets the flag and runs through.
TEST(VNPathSizer, CancelFromAnotherThreadStopsWithin101Items) {
  VNTestDir dir;
  for (int folder = 0; folder < 10; ++folder)
    for (int file = 0; file < 300; ++file) VNWriteTestFile(dir / (std::to_string(folder) + "/" + std::to_string(file)), "data");
  auto sizer = VNPathSizer::init();
  auto storage = std::make_shared<ObservedStorage>(
      /*trigger=*/500, [&] { std::thread([&] { sizer->cancel(); }).join(); });
  VNPlatformOverride<VNStorageUsage> override(storage);

  std::uint64_t count = 0;
  std::uint64_t size = sizer->directorySizeAndCount(&count, url(dir.path()));
  EXPECT_LE(storage->afterTrigger, 101u);
  EXPECT_GE(count, 490u);  // 500 items, at most 10 of them folders
  EXPECT_LT(count, 3000u);
  EXPECT_GT(size, 0u);
  EXPECT_FALSE(sizer->shouldContinue());

  std::uint64_t again = 0;
  sizer->directorySizeAndCount(&again, url(dir.path()));
  EXPECT_EQ(again, 3000u);

  // Called directly, the folder walk keeps a cleared flag and stops at its
  // first check.
  sizer->cancel();
  sizer->getTRFSFolderSize(url(dir.path()), &count);
  EXPECT_EQ(count, 101u - 10) << "101 items: the ten folders listed first, then files";
}

// Walks asked for from several threads at once take turns on the traversal
// queue: the shared sets see no race and each hard-link group counts once in
// all.
TEST(VNPathSizer, WalksFromManyThreadsTakeTurns) {
  VNTestDir dir;
  for (int i = 0; i < 50; ++i) {
    VNWriteTestFile(dir / ("f" + std::to_string(i)), "1");
    ASSERT_EQ(::link((dir / ("f" + std::to_string(i))).c_str(),
                     (dir / ("g" + std::to_string(i))).c_str()),
              0);
  }
  VNWriteTestFile(dir / "plain", "2");
  auto sizer = VNPathSizer::init();
  std::vector<std::uint64_t> counts(4);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < counts.size(); ++t)
    threads.emplace_back([&, t] { sizer->directorySizeAndCount(&counts[t], url(dir.path())); });
  std::thread canceller([&] {
    for (int i = 0; i < 20; ++i) sizer->setShouldContinue(true);
  });
  for (auto& thread : threads) thread.join();
  canceller.join();
  std::uint64_t total = 0;
  for (auto count : counts) total += count;
  EXPECT_EQ(total, 50u + 4 * 1);
}

// A clone and its original count once on file systems that clone; a plain
// copy, or a file deduplicated against another for part of its length only,
// counts on its own. The second walk skips all three shared names.
TEST(VNPathSizer, ClonesCountOnceAndPartlySharedFilesAsFiles) {
  for (auto kind : {VNLoopImage::Kind::XFS, VNLoopImage::Kind::Btrfs}) {
    SCOPED_TRACE(VNLoopImage::name(kind));
    VN_MOUNT_OR_SKIP(image, kind, 300u << 20);
    std::string original = *image / "original", partly = *image / "partly";
    VNMakeFolders(*image / "sub");
    ASSERT_EQ(VNRunCommand("head -c 1048576 /dev/urandom > " + original + " && cp --reflink=always " + original + " " +
                           *image / "clone" + " && cp --reflink=always " + original + " " + *image / "sub/clone" +
                           " && cp --reflink=never " + original + " " + *image / "copy" + " && (head -c 65536 " +
                           original + "; head -c 983040 /dev/urandom) > " + partly + " && sync && xfs_io -c 'dedupe " +
                           original + " 0 0 65536' " + partly + " >/dev/null && sync"),
              0);
    auto sizer = VNPathSizer::init();
    std::uint64_t count = 0;
    std::uint64_t size = sizer->directorySizeAndCount(&count, url(image->mountPoint()));
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(size, allocated(original) + allocated(*image / "copy") + allocated(partly));
    size = sizer->directorySizeAndCount(&count, url(image->mountPoint()));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(size, allocated(*image / "copy") + allocated(partly));
  }
}

// Each btrfs subvolume has a device number of its own; a clone in another
// subvolume is still the same storage.
TEST(VNPathSizer, ClonesAcrossBtrfsSubvolumesCountOnce) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Btrfs, 300u << 20);
  ASSERT_EQ(VNRunCommand("btrfs -q subvolume create " + *image / "one" + " && btrfs -q subvolume create " +
                         *image / "two"), 0);
  ASSERT_EQ(VNRunCommand("head -c 1048576 /dev/urandom > " + *image / "one/file"), 0);
  ASSERT_EQ(VNRunCommand("cp --reflink=always " + *image / "one/file " + *image / "two/clone"), 0);
  ASSERT_EQ(VNRunCommand("sync"), 0);
  std::uint64_t count = 0;
  std::uint64_t size = VNPathSizer::init()->directorySizeAndCount(&count, url(image->mountPoint()));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(size, allocated(*image / "one/file"));
}

}  // namespace
