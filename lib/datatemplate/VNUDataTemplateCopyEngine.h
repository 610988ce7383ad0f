#pragma once

#include <fts.h>
#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "foundation/VNError.h"
#include "foundation/VNExport.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNClone.h"
#include "platform/VNCompression.h"
#include "platform/VNCopyItem.h"
#include "platform/VNFileFlags.h"
#include "platform/VNStorageTiers.h"

// The state of one copy run, handed to every visit function. Built before the
// walk and released after it; nothing of it stays in the copier.
struct vnudtc_context {
  // Identity of a file: inode numbers repeat across file systems, and a
  // template may hold mount points.
  struct FileID {
    dev_t device;
    ino_t inode;
    bool operator==(const FileID&) const = default;
  };
  struct FileIDHash {
    std::size_t operator()(const FileID& id) const {
      return std::hash<std::uint64_t>()(id.inode) ^ (std::hash<std::uint64_t>()(id.device) << 1);
    }
  };

  VNUDataTemplateCopier* copier = nullptr;
  // The run's progress block; may be empty.
  VNUDataTemplateCopier::ProgressHandler progress;
  // Destination of the first copy of each hard-linked file met so far.
  std::unordered_map<FileID, std::string, FileIDHash> inode_paths;
  // The analysis found extra names of hard-linked files.
  bool has_duplicates = false;
  std::uint64_t items = 0;
  std::uint64_t symlinked_items = 0;
  std::uint64_t cloned_items = 0;
  std::uint64_t bytes = 0;          // st_size of the regular files finished
  std::uint64_t bytes_on_disk = 0;  // st_blocks * 512 of the same files
  std::uint64_t root_length = 0;    // byte length of the template root path
  std::optional<VNError> error;     // the error that ended the walk

  // The folders the walk is in, by depth (index 0: the template root and
  // the target), held O_PATH. Items below them are named relative to their
  // parents, so each lookup walks one path component instead of the whole
  // path, and no folder above can be swapped for a link meanwhile.
  struct OpenFolder {
    VNUniqueFd source;
    VNUniqueFd destination;
  };
  std::vector<OpenFolder> folders;
  // Per template device: whether its file system may hold compressed files.
  std::vector<std::pair<dev_t, bool>> compressing_devices;

  // The platform services of the run, looked up once rather than per item.
  std::shared_ptr<VNCopyItem> copyItem;
  std::shared_ptr<VNClone> clone;
  std::shared_ptr<VNFileFlags> fileFlags;
  std::shared_ptr<VNStorageTiers> tiers;
  std::shared_ptr<VNCompression> compression;
};

// The visit functions of the copy walk. Each returns 0 or an errno value.

// First visit of an entry: lays the item down as a symbolic link into the
// template, a clone of an earlier name of the same file, or a copy.
VN_EXTERN_C int vnudtc_visit_preorder(vnudtc_context* context, FTS* walk, FTSENT* entry,
                                      const char* destination);
// Completing visit: carries the metadata over and counts the item, unless
// the first visit already finished it.
VN_EXTERN_C int vnudtc_visit_postorder(vnudtc_context* context, FTSENT* entry,
                                       const char* destination);
// Carries the integrity flags, storage-tier flags and, where needed, the stat
// fields of `entry` over to `destination`, which was laid down as
// `laidDownKind` (FTS_SL for a symbolic link, FTS_F for a clone, else the
// entry's own kind).
VN_EXTERN_C int vnudtc_preserve_metadata(vnudtc_context* context, FTSENT* entry,
                                         const char* destination, int laidDownKind);
// Counts one finished item (with its bytes when `status` is a regular file
// and `withoutBytes` is false) and sends progress.
VN_EXTERN_C void vnudtc_increment_progress(vnudtc_context* context, const struct stat* status,
                                           bool withoutBytes);
VN_EXTERN_C void vnudtc_send_progress(vnudtc_context* context);
// Keeps the walk out of `entry`'s subtree and marks the entry done.
VN_EXTERN_C int vnudtc_skip_entry(vnudtc_context* context, FTS* walk, FTSENT* entry);
