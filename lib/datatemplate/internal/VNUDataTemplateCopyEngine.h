#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNCopyTask.h"
#include "foundation/VNError.h"
#include "foundation/VNExport.h"
#include "foundation/VNWorkPool.h"
#include "platform/VNClone.h"
#include "platform/VNCompression.h"
#include "platform/VNCopyItem.h"
#include "platform/VNFileFlags.h"
#include "platform/VNStorageTiers.h"
#include "platform/internal/VNTreeWalk.h"

// The state of one copy run, handed to every visit function. Built before the
// walk and released after it; nothing of it stays in the copier.
struct vnudtc_context {
  using FileID = VNFileID;
  using FileIDHash = VNFileIDHash;
  // Where the first name of a hard-linked file was laid down, and whether
  // that copy is still with the workers (later names wait for it).
  struct FirstCopy {
    std::string path;
    bool pending = false;
  };

  VNUDataTemplateCopier* copier = nullptr;
  // The run's progress block; may be empty.
  VNUDataTemplateCopier::ProgressHandler progress;
  // Destination of the first copy of each hard-linked file met so far.
  std::unordered_map<FileID, FirstCopy, FileIDHash> inode_paths;
  // The analysis found extra names of hard-linked files.
  bool has_duplicates = false;
  std::uint64_t items = 0;
  std::uint64_t symlinked_items = 0;
  std::uint64_t cloned_items = 0;
  std::uint64_t bytes = 0;          // st_size of the regular files finished
  std::uint64_t bytes_on_disk = 0;  // st_blocks * 512 of the same files
  std::uint64_t root_length = 0;    // byte length of the template root path
  std::uint64_t target_length = 0;  // byte length of the target path
  std::optional<VNError> error;     // the error that ended the walk

  // Folders holding descriptors: those of `folders` that do and those that
  // tasks still out hold. Kept bounded, so that the run needs a bounded
  // number of descriptors at any depth.
  std::size_t held_folders = 0;
  // The folders the walk is in, by depth (index 0: the template root and
  // the target). Items below them are named relative to their parents, so
  // each lookup walks one path component instead of the whole path, and no
  // folder above can be swapped for a link meanwhile. Only the deepest keep
  // their descriptors.
  std::vector<std::shared_ptr<VNCopyFolder>> folders;
  // The target root, from which clones reach the first copy of a file.
  VNUniqueFd target_root;
  // Per template device: whether its file system may hold compressed files.
  std::vector<std::pair<dev_t, bool>> compressing_devices;

  // The platform services of the run, looked up once rather than per item.
  std::shared_ptr<VNCopyItem> copyItem;
  std::shared_ptr<VNClone> clone;
  std::shared_ptr<VNFileFlags> fileFlags;
  std::shared_ptr<VNStorageTiers> tiers;
  std::shared_ptr<VNCompression> compression;

  // Threads that lay files down while the walk goes on; null when the walk's
  // thread does everything. Each item they lay down is finished (metadata,
  // counting, progress, log lines) on the walk's thread when it is taken
  // back. Last, so that its threads end before the rest goes.
  std::unique_ptr<VNWorkPool<VNCopyTask>> workers;
};

// The visit functions of the copy walk. Each returns 0 or an errno value.

// First visit of an entry: lays the item down as a symbolic link into the
// template, a clone of an earlier name of the same file, or a copy.
VN_EXTERN_C int vnudtc_visit_preorder(vnudtc_context* context, VNTreeWalk* walk, VNTreeEntry* entry,
                                      const char* destination);
// Completing visit: carries the metadata over and counts the item, unless
// the first visit already finished it.
VN_EXTERN_C int vnudtc_visit_postorder(vnudtc_context* context, VNTreeEntry* entry,
                                       const char* destination);
// Carries the integrity flags, storage-tier flags and, where needed, the stat
// fields of `entry` over to `destination`, which was laid down as
// `laidDownKind` (FTS_SL for a symbolic link, FTS_F for a clone, else the
// entry's own kind).
VN_EXTERN_C int vnudtc_preserve_metadata(vnudtc_context* context, VNTreeEntry* entry,
                                         const char* destination, int laidDownKind);
// Counts one finished item (with its bytes when `status` is a regular file
// and `withoutBytes` is false) and sends progress.
VN_EXTERN_C void vnudtc_increment_progress(vnudtc_context* context, const struct stat* status,
                                           bool withoutBytes);
VN_EXTERN_C void vnudtc_send_progress(vnudtc_context* context);
// Keeps the walk out of `entry`'s subtree and marks the entry done.
VN_EXTERN_C int vnudtc_skip_entry(vnudtc_context* context, VNTreeWalk* walk, VNTreeEntry* entry);
// Finishes the items the workers have laid down so far, without waiting.
// Returns 0, or the errno of the first that failed, whose destination then
// is the context's error.
VN_EXTERN_C int vnudtc_collect_finished(vnudtc_context* context);
// After the walk: drops the items not yet started when the walk failed, then
// waits for and finishes every item still with the workers. A failure among
// them is kept only when the walk had none.
VN_EXTERN_C void vnudtc_finish_pending(vnudtc_context* context);
