#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/VNError.h"
#include "foundation/VNExport.h"

// What one item occupies, as the path sizer needs it.
struct VNStorageValues {
  enum class Type : std::uint8_t { Unknown, Directory, Regular, SymbolicLink, Other };

  // Unknown when the values could not be read; every other field is then
  // empty.
  Type type = Type::Unknown;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  // The inode number combined with the device number: one value per file,
  // also across file systems.
  std::uint64_t fileIdentifier = 0;
  // Names of the file. A folder's is 1: folders cannot be hard-linked, and
  // the count Linux keeps for them is one plus their subfolders.
  std::uint64_t linkCount = 0;
  // Logical size and allocated size (blocks of 512 bytes); neither is given
  // for a folder, whose storage belongs to the file system's bookkeeping.
  std::optional<std::uint64_t> fileSize;
  std::optional<std::uint64_t> allocatedSize;
  // Set, with a content identifier, for a regular file some of whose extents
  // are shared with another file (a copy-on-write clone or a deduplicated
  // copy).
  bool mayShareContent = false;
  std::optional<std::uint64_t> contentIdentifier;
};

// Storage values of items and a walk over a folder tree that reads them.
//
// The Linux implementation reads each item with one statx call (type, inode,
// link count, size and blocks; never following a symbolic link). Only on file
// systems that can clone (btrfs, and XFS, where reflink is the default) does
// a regular file with allocated blocks get one more call, FIEMAP, asking for
// its extents until the first one marked shared. Its content identifier is
// that extent's physical address mixed with the device number, so all clones
// of one file have the same identifier, and files on different devices
// practically never collide.
//
// Limits of that rule: a file counts as sharing when any of its extents is
// shared, and two files are taken for the same content when their first
// shared extents are the same. A file that shares only part of its content
// is therefore counted whole or skipped whole; files sharing different
// extents with one another (a clone partly rewritten, then cloned again) can
// be counted more than once; and a file whose only shared extents belong to
// a snapshot outside the walk is skipped only when another file with the
// same first shared extent was counted before it.
class VN_EXPORT VNStorageUsage {
 public:
  // Called for each item; returns false to stop the walk.
  using Visitor = std::function<bool(const VNStorageValues& values)>;
  // Called for each failure to open or read a folder; returns false to stop.
  using ErrorHandler = std::function<bool(const VNError& error)>;

  virtual ~VNStorageUsage() = default;

  // The values of the item at `path` itself (a symbolic link is the link).
  // On failure returns values of Unknown type and sets `*error`.
  virtual VNStorageValues valuesOfItem(const std::string& path, VNError* error = nullptr) = 0;

  // Visits every item below the folder `root` (not `root` itself), without
  // following symbolic links (also not `root` itself): a folder's entries in
  // the order the file system lists them, then the contents of each of its
  // subfolders in turn. Items whose values cannot be read are visited with
  // Unknown values; folders that cannot be opened or read are reported to
  // `onError` (POSIX errors with step and path) and the walk goes on without
  // their contents. Crosses mount points. Any depth is walked with at most
  // 32 folders open at once (a folder left is opened again through ".." of
  // its child, and skipped, with an error, if it is no longer the same one). On file systems that clone, a second
  // thread helps read large folders; the callbacks always run on the caller's
  // thread.
  virtual void walk(const std::string& root, const Visitor& visit, const ErrorHandler& onError) = 0;

  static std::shared_ptr<VNStorageUsage> makeDefault();
};
