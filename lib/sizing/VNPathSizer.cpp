#include "sizing/VNPathSizer.h"

#include "foundation/VNFormat.h"
#include "platform/VNPlatformService.h"
#include "platform/VNStorageUsage.h"
#include "platform/VNSystemLog.h"

namespace {

// Counted items between two looks at the continue flag.
constexpr unsigned kItemsPerCheck = 101;

std::shared_ptr<VNStorageUsage> storage() { return VNPlatformSlot<VNStorageUsage>::get(); }

}  // namespace

VNPathSizer::VNPathSizer()
    : fileSizeQueue_(VNQueue::create("File Sizer Traversal Queue")),
      keepSizingQueue_(VNQueue::create("File Sizer Continue Queue")) {}

std::shared_ptr<VNPathSizer> VNPathSizer::init() {
  return std::shared_ptr<VNPathSizer>(new VNPathSizer());
}

std::uint64_t VNPathSizer::directorySizeAndCount(std::uint64_t* count, const VNFileURL& url) {
  if (url.empty()) return 0;
  setShouldContinue(true);
  std::uint64_t size = 0;
  std::uint64_t items = 0;
  fileSizeQueue_->sync([&] {
    VNStorageValues values = storage()->valuesOfItem(url.path());
    if (values.type == VNStorageValues::Type::Directory) {
      size = getTRFSFolderSize(url, &items);
    } else {
      size = fileSizeAtURL(url);
      items = 1;
    }
  });
  if (count) *count = items;
  return size;
}

std::uint64_t VNPathSizer::getTRFSFolderSize(const VNFileURL& url, std::uint64_t* count) {
  std::uint64_t size = 0;
  std::uint64_t items = 0;
  unsigned sinceCheck = 0;
  auto visit = [&](const VNStorageValues& values) {
    if (values.linkCount >= 2 && !hardlinkInodes_.insert(values.fileIdentifier).second)
      return true;
    if (values.mayShareContent && values.contentIdentifier &&
        !cloneIDs_.insert(*values.contentIdentifier).second)
      return true;
    size += values.allocatedSize.value_or(values.fileSize.value_or(0));
    if (values.type != VNStorageValues::Type::Directory) ++items;
    if (++sinceCheck < kItemsPerCheck) return true;
    sinceCheck = 0;
    return shouldContinue();
  };
  auto onError = [](const VNError& error) {
    VNPlatformSlot<VNSystemLog>::get()->log(
        VNSystemLog::Level::Error, "", "",
        VNFormat("FileSizerGetTRFSFolderSize Error Enumerating: %@", error));
    return true;
  };
  storage()->walk(url.path(), visit, onError);
  if (count) *count = items;
  return size;
}

std::uint64_t VNPathSizer::fileSizeAtURL(const VNFileURL& url) {
  VNStorageValues values = storage()->valuesOfItem(url.path());
  return values.allocatedSize.value_or(values.fileSize.value_or(0));
}

bool VNPathSizer::shouldContinue() {
  bool keepGoing = true;
  keepSizingQueue_->sync([&] { keepGoing = keepSizing(); });
  return keepGoing;
}

void VNPathSizer::setShouldContinue(bool keepGoing) {
  keepSizingQueue_->sync([&] { setKeepSizing(keepGoing); });
}

void VNPathSizer::cancel() { setShouldContinue(false); }
