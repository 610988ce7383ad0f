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
  // Set, with a content identifier, for a regular file all of whose extents
  // are shared (a copy-on-write clone or a deduplicated copy of another).
  bool mayShareContent = false;
  std::optional<std::uint64_t> contentIdentifier;
};

// Storage values of items and a walk over a folder tree that reads them.
//
// The Linux implementation reads each item with one statx call (type, inode,
// link count, size and blocks; never following a symbolic link). Only on file
// systems that can clone (btrfs, and XFS, where reflink is the default) does
// a regular file with allocated blocks get one more call, FIEMAP, for its
// extents. When every extent is marked shared, its content identifier is a
// fingerprint of the whole extent map (logical offset, physical address and
// length of each) and of the file system, named by its UUID on btrfs (whose
// subvolumes each have a device number of their own) and by its f_fsid on
// XFS. All clones of one file therefore have the same identifier, across
// subvolumes too, while a file that shares only part of its extents has none
// and counts as a file of its own, whole.
//
// Limits of that rule: a partly shared file's shared bytes are counted with
// it, as du counts them; and a file whose extents are all shared, but with
// a snapshot outside the walk, is still counted once.
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
