#pragma once

#include <cstdint>
#include <memory>
#include <unordered_set>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNQueue.h"

// Measures a file or a folder tree: the bytes it occupies and how many files
// it holds, counting storage that several names share only once. A file with
// several hard links is counted at its first name; a file sharing its content
// with a clone is counted at the first of them (see VNStorageUsage for how
// sharing is recognised and where that rule falls short). Both memories last
// as long as the sizer, so totals of several calls on one sizer together
// count shared storage once; a fresh sizer gives independent totals.
//
// Sizes are allocated bytes (the logical size where a file system gives
// none); folders are walked but neither sized nor counted. Sizing never fails
// as a whole: what cannot be read counts as an item of no size.
//
// One sizer walks one tree at a time on its traversal queue ("File Sizer
// Traversal Queue"); callers on several threads wait in turn. cancel() may be
// called from any thread at any moment: the continue flag lives on its own
// queue ("File Sizer Continue Queue"), which a walk consults once every 101
// counted items, so a cancelled walk stops within 101 more items and returns
// what it has counted so far.
class VN_EXPORT VNPathSizer {
 public:
  using IdentifierSet = std::unordered_set<std::uint64_t>;

  // A sizer with the continue flag set, both queues made and nothing counted.
  static std::shared_ptr<VNPathSizer> init();

  // Size and item count of `url`: a folder's contents through
  // getTRFSFolderSize, anything else (a symbolic link is not followed, a
  // missing path is included) through fileSizeAtURL with a count of 1. An
  // empty URL gives 0 and leaves `*count` alone. Sets the continue flag
  // first, so an earlier cancel does not stop this walk. Must not be called
  // from inside a walk of the same sizer (it aborts: it would wait on its
  // own queue).
  std::uint64_t directorySizeAndCount(std::uint64_t* count, const VNFileURL& url);

  // Allocated bytes and file count of everything below the folder `url`,
  // skipping files already counted by this sizer. Folders that cannot be
  // read are logged to the system log and skipped. Stops early when the
  // continue flag is cleared (it does not set it), returning the totals so
  // far; `*count` is written in every case. Called directly, it runs on the
  // caller's thread and must not overlap another walk of this sizer.
  std::uint64_t getTRFSFolderSize(const VNFileURL& url, std::uint64_t* count = nullptr);

  // The allocated size of the item at `url` itself, else its logical size,
  // else 0 (a folder, a missing path). Counts nothing.
  std::uint64_t fileSizeAtURL(const VNFileURL& url);

  // The continue flag, read and written through the continue queue.
  bool shouldContinue();
  void setShouldContinue(bool keepGoing);
  // The same as setShouldContinue(false).
  void cancel();

  // Plain accessors of the sizer's fields. The sets hold the file
  // identifiers (inode numbers combined with their device) of multiply linked
  // files and the content identifiers of shared files counted so far. They take no lock: use them only
  // where no walk can run at the same time (the flag: inside a job on the
  // continue queue).
  bool keepSizing() const { return keepSizing_; }
  void setKeepSizing(bool keepSizing) { keepSizing_ = keepSizing; }
  IdentifierSet& hardlinkInodes() { return hardlinkInodes_; }
  void setHardlinkInodes(IdentifierSet inodes) { hardlinkInodes_ = std::move(inodes); }
  IdentifierSet& cloneIDs() { return cloneIDs_; }
  void setCloneIDs(IdentifierSet identifiers) { cloneIDs_ = std::move(identifiers); }
  const std::shared_ptr<VNQueue>& fileSizeQueue() const { return fileSizeQueue_; }
  void setFileSizeQueue(std::shared_ptr<VNQueue> queue) { fileSizeQueue_ = std::move(queue); }
  const std::shared_ptr<VNQueue>& keepSizingQueue() const { return keepSizingQueue_; }
  void setKeepSizingQueue(std::shared_ptr<VNQueue> queue) { keepSizingQueue_ = std::move(queue); }

 private:
  VNPathSizer();

  bool keepSizing_ = true;
  IdentifierSet hardlinkInodes_;
  IdentifierSet cloneIDs_;
  std::shared_ptr<VNQueue> fileSizeQueue_;
  std::shared_ptr<VNQueue> keepSizingQueue_;
};
