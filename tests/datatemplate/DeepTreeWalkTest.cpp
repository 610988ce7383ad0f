// Every walker of the library over a tree 5,000 folders deep with 256
// descriptors allowed: the copy, attribute forcing, the BOM scan, the shove
// and the removal each succeed and see every file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNAttributeForcing.h"
#include "datatemplate/internal/VNBomDatabase.h"
#include "datatemplate/internal/VNBomScanner.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNPlatformService.h"
#include "platform/VNRemoveTree.h"
#include "platform/VNShove.h"
#include "platform/internal/VNBeneath.h"
#include "support/VNDeepTree.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kDepth = 5000;
constexpr size_t kFileEvery = 10;
// Folders whose mode and times are checked after the copy.
constexpr size_t kCheckedLevels[] = {1, 2500, kDepth};

// "d/d/.../d": the folder `levels` deep in a VNDeepTree, below its root.
std::string chain(size_t levels) {
  std::string path;
  for (size_t level = 0; level < levels; ++level) path += level ? "/d" : "d";
  return path;
}

// The folder `levels` deep below `root`, opened with `flags`.
VNUniqueFd openBelow(const std::string& root, size_t levels, int flags = O_PATH | O_DIRECTORY) {
  VNUniqueFd top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return VNUniqueFd(VNOpenBeneath(top.get(), chain(levels), flags));
}

struct stat statusBelow(const std::string& root, size_t levels) {
  struct stat st {};
  VNUniqueFd folder = openBelow(root, levels);
  EXPECT_EQ(::fstat(folder.get(), &st), 0) << "level " << levels;
  return st;
}

// The number of entries (the root, folders and files) in a BOM of `root`.
std::int64_t bomEntries(const std::string& root, const std::string& bomPath) {
  VNError error;
  std::shared_ptr<VNBomDatabase> bom = VNBomScanTree(bomPath, root, BomOptionStat, &error);
  EXPECT_TRUE(bom) << error.description();
  if (!bom) return -1;
  sqlite3_stmt* statement = nullptr;
  std::int64_t count = -1;
  if (sqlite3_prepare_v2(bom->handle(), "SELECT count(*) FROM entries", -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW)
    count = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  return count;
}

}  // namespace

TEST(DeepTrees, EveryWalkerWalksPastTheDescriptorLimit) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, 300u << 20);
  auto log = std::make_shared<VNRecordingSystemLog>();
  log->setLevelEnabled(VNSystemLog::Level::Default, false);
  VNPlatformOverride<VNSystemLog> logOverride(log);
  const std::string system = *image / "system";
  const std::string templateFolder = system + "/System/Library/Templates/Data";
  const std::string target = *image / "target";
  fs::create_directories(templateFolder);
  fs::create_directories(target);
  VNWriteTestFile(system + "/System/Library/Templates/Data.symlink-patterns", "");
  VNDeepTree tree(templateFolder, kDepth, kFileEvery);
  // A second name of the deepest file: cloned from a first copy far longer
  // than PATH_MAX to name.
  VNUniqueFd deepest = openBelow(templateFolder, kDepth, O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::linkat(deepest.get(), "f", deepest.get(), "g", 0), 0);
  for (size_t level : kCheckedLevels) {
    VNUniqueFd folder = openBelow(templateFolder, level, O_RDONLY | O_DIRECTORY);
    struct timespec times[2] = {{1000000000, 0}, {1000000000 + static_cast<time_t>(level), 0}};
    ASSERT_EQ(::fchmod(folder.get(), 0750), 0);
    ASSERT_EQ(::futimens(folder.get(), times), 0);
  }
  const std::int64_t items = static_cast<std::int64_t>(1 + kDepth + tree.files() + 1);

  VNDescriptorLimit limit(256);
  {
    SCOPED_TRACE("copy");
    ::setenv("VARNEL_COPY_THREADS", "3", 1);
    auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath(system, true));
    copier->loadSymlinkedPatterns();
    VNError error;
    EXPECT_TRUE(copier->_copyDataTemplateIfNeededToURL(VNFileURL::fileURLWithPath(target, true), &error, nullptr))
        << error.description();
    ::unsetenv("VARNEL_COPY_THREADS");
    EXPECT_EQ(copier->lastCopyCounts().items, static_cast<std::uint64_t>(items));
    EXPECT_EQ(copier->lastCopyCounts().clonedItems, 1u);
    for (size_t level : kCheckedLevels) {
      struct stat want = statusBelow(templateFolder, level), got = statusBelow(target, level);
      EXPECT_EQ(got.st_mode & 07777, 0750u) << "level " << level;
      EXPECT_EQ(got.st_mtim.tv_sec, want.st_mtim.tv_sec) << "level " << level;
    }
  }
  {
    SCOPED_TRACE("attribute forcing");
    VNUniqueFd folder = openBelow(target, 2500, O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(::fchmod(folder.get(), 0700), 0);
    VNError error;
    EXPECT_TRUE(VNForceAttributesBelow(templateFolder, VNAtPath(target.c_str()), target, &error))
        << error.description();
    EXPECT_EQ(statusBelow(target, 2500).st_mode & 07777, 0750u);
    for (const auto& entry : log->entries())
      if (entry.level != VNSystemLog::Level::Default) ADD_FAILURE() << entry.text;
  }
  {
    SCOPED_TRACE("BOM scan");
    EXPECT_EQ(bomEntries(target, *image / "copy.bom"), items);
  }
  {
    SCOPED_TRACE("shove");
    const std::string destination = *image / "merged";
    fs::create_directories(destination);
    VNDeepTree existing(destination, kDepth, kFileEvery);
    VNShoveRequest request{target, destination, VNShoveMergeFolders | VNShoveReplaceItems, ""};
    std::string messages;
    EXPECT_EQ(VNShove::makeDefault()->shove(request, [&](int, const std::string& line) { messages += line; }), 0)
        << messages;
    EXPECT_EQ(bomEntries(destination, *image / "merged.bom"), items);
    EXPECT_EQ(bomEntries(target, *image / "left.bom"), static_cast<std::int64_t>(1 + kDepth));

    SCOPED_TRACE("removal");
    VNError error;
    EXPECT_TRUE(VNRemoveTree(target + "/d", &error)) << error.description();
    VNUniqueFd holder(::open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_TRUE(VNRemoveTreeAt(holder.get(), "d", existing.path(), &error)) << error.description();
    EXPECT_TRUE(fs::is_empty(target));
    EXPECT_TRUE(fs::is_empty(destination));
  }
}
