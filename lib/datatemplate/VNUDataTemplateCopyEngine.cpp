// The copy engine: one depth-first walk over the template that lays each
// item down on the target and carries its metadata over.
#include "datatemplate/internal/VNUDataTemplateCopyEngine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/VNPlatformService.h"
#include "platform/internal/VNFolderTrail.h"

namespace {

// Folders on the walk's way down that keep their descriptors, and the most
// folders holding descriptors at once, counting those of tasks still out.
constexpr std::size_t kOpenWayFolders = 8;
constexpr std::size_t kMostHeldFolders = 64;

// Put into an entry's user pointer once the entry is finished, or handed to
// the workers that finish it, so that its completing visit does nothing.
const char kDoneMark = 0;
void* doneMark() { return const_cast<char*>(&kDoneMark); }

// The entry's path below the template root, without a leading run of "/"
// and "./"; the root itself becomes empty.
const char* relativePath(const vnudtc_context* context, const VNTreeEntry* entry) {
  const char* path = entry->path + context->root_length;
  for (;;) {
    if (path[0] == '/') {
      ++path;
    } else if (path[0] == '.' && path[1] == '/') {
      path += 2;
    } else if (path[0] == '.' && path[1] == '\0') {
      ++path;
    } else {
      return path;
    }
  }
}

bool isSymlinkKind(int info) { return info == FTS_SL || info == FTS_SLNONE; }

// What the metadata steps need of a template item, read from the walk's
// entry or from a task that outlived it.
struct Item {
  const char* sourcePath;
  const char* name;
  int kind;
  const struct stat* status;
  const VNCopyFolder* folder;  // holds the item; null for the template root
};

// The open folder holding `entry`, or null for the root (or should the walk
// be deeper than the folders held, which it never is).
const std::shared_ptr<VNCopyFolder>* parentFolder(const vnudtc_context* context, const VNTreeEntry* entry) {
  if (entry->level < 1 || static_cast<size_t>(entry->level) > context->folders.size()) return nullptr;
  return &context->folders[static_cast<size_t>(entry->level) - 1];
}

Item itemOf(const vnudtc_context* context, const VNTreeEntry* entry) {
  const auto* parent = parentFolder(context, entry);
  return {entry->path, entry->name, entry->kind, entry->status, parent ? parent->get() : nullptr};
}

Item itemOf(const VNCopyTask& task) {
  return {task.sourcePath.c_str(), task.name.c_str(), task.entryKind, &task.status, task.folder.get()};
}

VNAtPath sourceItem(const Item& item) {
  return item.folder ? VNAtPath(item.folder->source.get(), item.name) : VNAtPath(item.sourcePath);
}

VNAtPath destinationItem(const Item& item, const char* destination) {
  return item.folder ? VNAtPath(item.folder->destination.get(), item.name) : VNAtPath(destination);
}

// Whether the file system of `item` can hold compressed files at all, asked
// once per device: on one that can't, no file needs the compressed check.
bool mayBeCompressed(vnudtc_context* context, const Item& item) {
  const dev_t device = item.status->st_dev;
  for (const auto& [known, may] : context->compressing_devices)
    if (known == device) return may;
  bool may = context->compression->fileSystemMayCompress(sourceItem(item));
  context->compressing_devices.emplace_back(device, may);
  return may;
}

// The errno of a failed platform call, never 0.
int failureCode(const VNFsStatus& status) { return status.code ? status.code : EIO; }

int copyFailed(vnudtc_context* context, const char* source, const char* destination, int code) {
  context->copier->log("could not copy %s -> %s: %d (%s)\n", source, destination, code,
                       std::strerror(code));
  return code;
}

int layDownSymlink(vnudtc_context* context, VNTreeWalk* walk, VNTreeEntry* entry, const char* destination,
                   const char* relative) {
  const bool directory = entry->kind == FTS_D || entry->kind == FTS_DP;
  char link[VNUDTLinkBufferSize] = {};
  dataTemplateLinkForPath(relative, directory, link);
  const VNAtPath target = destinationItem(itemOf(context, entry), destination);
  ::unlinkat(target.dirfd, target.path, 0);
  if (::symlinkat(link, target.dirfd, target.path) != 0 && errno != 0) {
    int code = errno;
    context->copier->log("could not create symlink at %s: %d (%s)", destination, code,
                         std::strerror(code));
    return code;
  }
  if (int result = vnudtc_preserve_metadata(context, entry, destination, FTS_SL)) return result;
  context->items += 1;
  context->symlinked_items += 1;
  vnudtc_send_progress(context);
  return vnudtc_skip_entry(context, walk, entry);
}

// The WARD bits of the source replace those of the destination.
int preserveWARDFlags(vnudtc_context* context, VNAtPath target, const char* destination,
                      std::uint32_t sourceFlags) {
  std::uint32_t current = 0;
  VNFsStatus status = context->fileFlags->getFlags(target, &current);
  if (status.ok()) {
    std::uint32_t wanted = (sourceFlags & VNFileFlag::WARDMask) | (current & ~VNFileFlag::WARDMask);
    if (wanted != current) status = context->fileFlags->setFlags(target, wanted);
  }
  if (status.ok() || status.code == 0) return 0;
  context->copier->log("could not preserve WARD flags for %s: %d (%s)", destination, status.code,
                       std::strerror(status.code));
  return status.code;
}

// Storage-tier flags are carried over where they differ; a failure is only
// logged.
void preserveTierFlags(vnudtc_context* context, const Item& item, const char* destination) {
  const VNAtPath target = destinationItem(item, destination);
  std::uint64_t from = 0, to = 0;
  if (!context->tiers->getTierFlags(sourceItem(item), /*follow=*/false, &from).ok()) from = 0;
  if (!context->tiers->getTierFlags(target, /*follow=*/false, &to).ok()) to = 0;
  from &= VNTierFlag::Mask;
  to &= VNTierFlag::Mask;
  if (from == to) return;
  VNFsStatus status = context->tiers->setFastPromotion(
      target, (from & VNTierFlag::FastPromotion) != 0, /*follow=*/false);
  if (status.ok()) {
    auto pin = (from & VNTierFlag::PinnedFast)   ? VNStorageTiers::Pin::Fast
               : (from & VNTierFlag::PinnedSlow) ? VNStorageTiers::Pin::Slow
                                                 : VNStorageTiers::Pin::None;
    status = context->tiers->setPin(target, pin, /*follow=*/false);
  }
  if (!status.ok())
    context->copier->log("could not preserve QRFS Tandem flags for %s: %d (%s)", destination,
                         status.code, std::strerror(status.code));
}

int preserveMetadata(vnudtc_context* context, const Item& item, const char* destination,
                     int laidDownKind) {
  // A copy with the full option set and a clone both carry the source's
  // whole flags word, so an item laid down as its own kind (other than a
  // folder, whose stat fields come now) already has the source's WARD bits:
  // only items laid down as something else, and folders, need the step.
  const bool sameItem = laidDownKind == item.kind && laidDownKind != FTS_DP;
  if (!sameItem) {
    std::uint32_t sourceFlags = 0;
    VNFsStatus status = context->fileFlags->getFlags(sourceItem(item), &sourceFlags);
    if (!status.ok()) {
      context->copier->log("could not preserve WARD flags for %s: %d (%s)", destination,
                           status.code, std::strerror(status.code));
      return failureCode(status);
    }
    if (int result = preserveWARDFlags(context, destinationItem(item, destination), destination, sourceFlags))
      return result;
  }

  if (laidDownKind == FTS_F || laidDownKind == FTS_DP)
    preserveTierFlags(context, item, destination);

  // A regular file copied as itself needs its stat fields again only when
  // compressed: of its flags word only that bit is asked for.
  bool statNeeded = !sameItem;
  if (sameItem && laidDownKind == FTS_F && mayBeCompressed(context, item)) {
    VNFsStatus status = context->compression->isCompressed(sourceItem(item), &statNeeded);
    if (status.code == ENOTSUP) {
      statNeeded = false;
    } else if (!status.ok()) {
      context->copier->log("could not preserve WARD flags for %s: %d (%s)", destination,
                           status.code, std::strerror(status.code));
      return failureCode(status);
    }
  }
  if (!statNeeded) return 0;
  VNFsStatus status = context->copyItem->copyItem(sourceItem(item), destinationItem(item, destination),
                                                  VNCopyOptionSet::StatOnly);
  if (status.ok()) return 0;
  context->copier->log("could not preserve stat fields for %s: %d (%s)", destination, status.code,
                       std::strerror(status.code));
  return failureCode(status);
}

// The rest of a clone's first visit once the clone was tried.
int finishClone(vnudtc_context* context, const VNCopyTask& task) {
  if (!task.result.ok()) {
    int code = task.result.code;
    context->copier->log("could not create clone at %s (of %s): %d (%s)", task.destination,
                         task.firstCopy, code, std::strerror(code));
    if (code != 0) return code;
  }
  if (int result = preserveMetadata(context, itemOf(task), task.destination.c_str(), FTS_F)) return result;
  context->cloned_items += 1;
  vnudtc_increment_progress(context, &task.status, /*withoutBytes=*/context->has_duplicates);
  return 0;
}

// Both visits' work for an item a worker copied.
int finishCopy(vnudtc_context* context, const VNCopyTask& task) {
  if (!task.result.ok())
    return copyFailed(context, task.sourcePath.c_str(), task.destination.c_str(), failureCode(task.result));
  if (int result = preserveMetadata(context, itemOf(task), task.destination.c_str(), task.entryKind))
    return result;
  vnudtc_increment_progress(context, &task.status, /*withoutBytes=*/false);
  return 0;
}

// A folder's completing visit: the metadata named through its parent, then
// the count.
int closeFolder(vnudtc_context* context, const Item& folder, const char* destination) {
  if (int result = preserveMetadata(context, folder, destination, FTS_DP)) return result;
  vnudtc_increment_progress(context, folder.status, /*withoutBytes=*/false);
  return 0;
}

// Makes `code`, the failure of the item at `destination`, the context's
// error unless the walk has one already.
int failed(vnudtc_context* context, int code, const std::string& destination) {
  if (!context->error)
    context->error = VNError(VNPOSIXErrorDomain, code, {{VNFilePathErrorKey, VNValue(destination)}});
  return code;
}

// One item in `folder` is finished. A folder the walk has left closes once
// nothing in it is pending, which may close the folder holding it in turn.
int itemFinished(vnudtc_context* context, std::shared_ptr<VNCopyFolder> folder) {
  while (folder && --folder->pending == 0 && folder->closing) {
    std::unique_ptr<VNCopyTask> closing = std::move(folder->closing);
    if (int code = closeFolder(context, itemOf(*closing), closing->destination.c_str()))
      return failed(context, code, closing->destination);
    folder = closing->folder;
  }
  return 0;
}

// Finishes a task taken back from the workers.
int complete(vnudtc_context* context, std::unique_ptr<VNCopyTask> task) {
  if (task->firstNameOf) context->inode_paths.at(*task->firstNameOf).pending = false;
  int code = task->kind == VNCopyTask::Kind::Clone ? finishClone(context, *task) : finishCopy(context, *task);
  if (code != 0) return failed(context, code, task->destination);
  return itemFinished(context, task->folder);
}

// Finishes tasks, helping the workers, for as long as `waiting()` holds
// and tasks are out.
template <class Condition>
int finishWhile(vnudtc_context* context, Condition waiting) {
  while (context->workers && waiting()) {
    std::unique_ptr<VNCopyTask> task = context->workers->waitFinished();
    if (!task) break;
    if (int code = complete(context, std::move(task))) return code;
  }
  return 0;
}

std::unique_ptr<VNCopyTask> makeTask(vnudtc_context* context, const VNTreeEntry* entry, const char* destination) {
  auto task = std::make_unique<VNCopyTask>();
  if (const auto* parent = parentFolder(context, entry)) task->folder = *parent;
  task->name = entry->name;
  task->sourcePath = entry->path;
  task->destination = destination;
  task->status = *entry->status;
  task->entryKind = entry->kind;
  task->copyItem = context->copyItem.get();
  task->clone = context->clone.get();
  return task;
}

// Whether `entry`'s item goes to the workers rather than being laid down on
// the walk's thread.
bool handsOff(const vnudtc_context* context, const VNTreeEntry* entry) {
  return context->workers && parentFolder(context, entry);
}

// Lays a file, link or special item down (a copy or a clone). Handed to the
// workers, it is finished when taken back; laid down here, a clone is
// finished at once and a copy by its completing visit.
int layDown(vnudtc_context* context, VNTreeWalk* walk, VNTreeEntry* entry, std::unique_ptr<VNCopyTask> task) {
  if (handsOff(context, entry)) {
    task->folder->pending += 1;
    context->workers->submit(std::move(task));
    return vnudtc_skip_entry(context, walk, entry);
  }
  task->run();
  if (task->kind == VNCopyTask::Kind::Clone) {
    if (int result = finishClone(context, *task)) return result;
    return vnudtc_skip_entry(context, walk, entry);
  }
  if (!task->result.ok())
    return copyFailed(context, entry->path, task->destination.c_str(), failureCode(task->result));
  return 0;
}

// Closes the descriptors of the folder kOpenWayFolders above the one just
// entered, once nothing in it is pending (a failure of what was pending is
// the run's error already).
int closeFarFolder(vnudtc_context* context) {
  if (context->folders.size() <= kOpenWayFolders) return 0;
  VNCopyFolder& folder = *context->folders[context->folders.size() - 1 - kOpenWayFolders];
  if (int code = finishWhile(context, [&] { return folder.pending > 0; })) return code;
  folder.close();
  return 0;
}

// Holds the folder just laid down for `entry` and its template folder, for
// the items below them.
int enterFolder(vnudtc_context* context, const VNTreeEntry* entry, const char* destination) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  Item item = itemOf(context, entry);
  VNAtPath source = sourceItem(item);
  VNAtPath target = destinationItem(item, destination);
  VNUniqueFd sourceFd(::openat(source.dirfd, source.path, kFlags));
  if (!sourceFd) return errno;
  VNUniqueFd destinationFd(::openat(target.dirfd, target.path, kFlags));
  if (!destinationFd) return errno == ELOOP ? ENOTDIR : errno;
  struct stat laidDown {};
  if (::fstat(destinationFd.get(), &laidDown) != 0) return errno;
  if (entry->level == 0) context->target_root.reset(::fcntl(destinationFd.get(), F_DUPFD_CLOEXEC, 0));
  auto folder = std::make_shared<VNCopyFolder>();
  folder->device = laidDown.st_dev;
  folder->inode = laidDown.st_ino;
  folder->open(std::move(sourceFd), std::move(destinationFd), &context->held_folders);
  context->folders.resize(static_cast<size_t>(entry->level));
  context->folders.push_back(std::move(folder));
  return closeFarFolder(context);
}

// Finishes tasks out before another folder is held when too many are: the
// folders that tasks hold, and the folders above them that wait for them to
// close. A failure among those tasks is the run's error already.
int makeRoomForFolder(vnudtc_context* context) {
  return finishWhile(context, [&] { return context->held_folders >= kMostHeldFolders; });
}

// Opens the folder the walk climbs back to from `child` again when it was
// closed: the template folder is the walk's, the laid-down one is reached
// through ".." of `child`'s and must be the folder it was.
int reopenParent(vnudtc_context* context, const VNCopyFolder& child, const VNTreeEntry* entry) {
  if (context->folders.empty() || context->folders.back()->source) return 0;
  if (int code = makeRoomForFolder(context)) return code;
  VNCopyFolder& parent = *context->folders.back();
  VNUniqueFd destination;
  if (int code = VNReopenParent(child.destination.get(), O_PATH, parent.device, parent.inode, &destination))
    return code;
  VNUniqueFd source(::fcntl(entry->folderFd, F_DUPFD_CLOEXEC, 0));
  if (!source) return errno;
  parent.open(std::move(source), std::move(destination), &context->held_folders);
  return 0;
}

// Lays a folder down and holds it.
int copyFolder(vnudtc_context* context, VNTreeEntry* entry, const char* destination) {
  if (int code = makeRoomForFolder(context)) return code;
  Item item = itemOf(context, entry);
  VNFsStatus status = context->copyItem->copyItem(sourceItem(item), destinationItem(item, destination),
                                                  VNCopyOptionSet::Directory, entry->status);
  int code = status.ok() ? enterFolder(context, entry, destination) : failureCode(status);
  if (code != 0) return copyFailed(context, entry->path, destination, code);
  return closeFarFolder(context);
}

}  // namespace

int vnudtc_visit_preorder(vnudtc_context* context, VNTreeWalk* walk, VNTreeEntry* entry,
                          const char* destination) {
  const char* relative = relativePath(context, entry);
  const bool directory = entry->kind == FTS_D;
  if (!isSymlinkKind(entry->kind) && context->copier->_shouldSymlinkPath(relative, directory))
    return layDownSymlink(context, walk, entry, destination, relative);
  if (directory) return copyFolder(context, entry, destination);

  std::unique_ptr<VNCopyTask> task = makeTask(context, entry, destination);
  const struct stat* st = entry->status;
  if (entry->kind == FTS_F && st->st_nlink >= 2) {
    vnudtc_context::FileID id{st->st_dev, st->st_ino};
    auto found = context->inode_paths.find(id);
    if (found != context->inode_paths.end()) {
      const vnudtc_context::FirstCopy& first = found->second;
      if (int result = finishWhile(context, [&] { return first.pending; })) return result;
      task->kind = VNCopyTask::Kind::Clone;
      task->firstCopy = first.path;
      const std::size_t below = first.path.find_first_not_of('/', context->target_length);
      task->firstCopyBelow = first.path.substr(std::min(below, first.path.size()));
      task->targetRoot = context->target_root.get();
    } else {
      context->inode_paths.emplace(id, vnudtc_context::FirstCopy{destination, handsOff(context, entry)});
      task->firstNameOf = id;
    }
  }
  return layDown(context, walk, entry, std::move(task));
}

int vnudtc_visit_postorder(vnudtc_context* context, VNTreeEntry* entry, const char* destination) {
  if (entry->pointer == doneMark()) return 0;
  if (entry->kind == FTS_DP && static_cast<size_t>(entry->level) < context->folders.size()) {
    // A folder's own metadata waits for the items laid down in it: with
    // some still pending it closes later, when the last is finished.
    const auto level = static_cast<size_t>(entry->level);
    std::shared_ptr<VNCopyFolder> folder = std::move(context->folders[level]);
    context->folders.resize(level);
    if (int code = reopenParent(context, *folder, entry)) return code;
    if (folder->pending > 0) {
      folder->closing = makeTask(context, entry, destination);
      if (folder->closing->folder) folder->closing->folder->pending += 1;
      return 0;
    }
  }
  if (entry->kind == FTS_DP) return closeFolder(context, itemOf(context, entry), destination);
  if (int result = vnudtc_preserve_metadata(context, entry, destination, entry->kind))
    return result;
  vnudtc_increment_progress(context, entry->status, /*withoutBytes=*/false);
  return 0;
}

int vnudtc_preserve_metadata(vnudtc_context* context, VNTreeEntry* entry, const char* destination,
                             int laidDownKind) {
  return preserveMetadata(context, itemOf(context, entry), destination, laidDownKind);
}

void vnudtc_increment_progress(vnudtc_context* context, const struct stat* status,
                               bool withoutBytes) {
  context->items += 1;
  if (status && S_ISREG(status->st_mode) && !withoutBytes) {
    context->bytes += static_cast<std::uint64_t>(status->st_size);
    context->bytes_on_disk += static_cast<std::uint64_t>(status->st_blocks) * 512;
  }
  vnudtc_send_progress(context);
}

void vnudtc_send_progress(vnudtc_context* context) {
  if (context->progress) context->progress(*context->copier, context->items, context->bytes);
}

int vnudtc_skip_entry(vnudtc_context*, VNTreeWalk* walk, VNTreeEntry* entry) {
  walk->skip();
  entry->pointer = doneMark();
  return 0;
}

int vnudtc_collect_finished(vnudtc_context* context) {
  if (!context->workers) return 0;
  while (std::unique_ptr<VNCopyTask> task = context->workers->takeFinished())
    if (int code = complete(context, std::move(task))) return code;
  return 0;
}

void vnudtc_finish_pending(vnudtc_context* context) {
  if (!context->workers) return;
  if (context->error) context->workers->cancelWaiting();
  while (std::unique_ptr<VNCopyTask> task = context->workers->waitFinished())
    complete(context, std::move(task));
}
