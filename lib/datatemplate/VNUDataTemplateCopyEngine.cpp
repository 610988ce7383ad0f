// The copy engine: one depth-first fts walk over the template that lays each
// item down on the target and carries its metadata over.
#include "datatemplate/VNUDataTemplateCopyEngine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/VNPlatformService.h"

namespace {

// Put into an entry's user pointer once the entry is finished, so that its
// completing visit does nothing.
const char kDoneMark = 0;
void* doneMark() { return const_cast<char*>(&kDoneMark); }

// The entry's path below the template root, without a leading run of "/"
// and "./"; the root itself becomes empty.
const char* relativePath(const vnudtc_context* context, const FTSENT* entry) {
  const char* path = entry->fts_path + context->root_length;
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

// The open folder holding `entry`, or null for the root (or should the walk
// be deeper than the folders held, which it never is).
const vnudtc_context::OpenFolder* parentFolder(const vnudtc_context* context, const FTSENT* entry) {
  if (entry->fts_level < 1 || static_cast<size_t>(entry->fts_level) > context->folders.size()) return nullptr;
  return &context->folders[static_cast<size_t>(entry->fts_level) - 1];
}

VNAtPath sourceItem(const vnudtc_context* context, const FTSENT* entry) {
  const auto* parent = parentFolder(context, entry);
  return parent ? VNAtPath(parent->source.get(), entry->fts_name) : VNAtPath(entry->fts_path);
}

VNAtPath destinationItem(const vnudtc_context* context, const FTSENT* entry, const char* destination) {
  const auto* parent = parentFolder(context, entry);
  return parent ? VNAtPath(parent->destination.get(), entry->fts_name) : VNAtPath(destination);
}

// Whether the file system of `entry` can hold compressed files at all, asked
// once per device: on one that can't, no file needs the compressed check.
bool mayBeCompressed(vnudtc_context* context, const FTSENT* entry) {
  const dev_t device = entry->fts_statp->st_dev;
  for (const auto& [known, may] : context->compressing_devices)
    if (known == device) return may;
  bool may = context->compression->fileSystemMayCompress(sourceItem(context, entry));
  context->compressing_devices.emplace_back(device, may);
  return may;
}

// Holds the folder just laid down for `entry` and its template folder, for
// the items below them.
int enterFolder(vnudtc_context* context, const FTSENT* entry, const char* destination) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  VNAtPath source = sourceItem(context, entry);
  VNAtPath target = destinationItem(context, entry, destination);
  VNUniqueFd sourceFd(::openat(source.dirfd, source.path, kFlags));
  if (!sourceFd) return errno;
  VNUniqueFd destinationFd(::openat(target.dirfd, target.path, kFlags));
  if (!destinationFd) return errno == ELOOP ? ENOTDIR : errno;
  context->folders.resize(static_cast<size_t>(entry->fts_level));
  context->folders.push_back({std::move(sourceFd), std::move(destinationFd)});
  return 0;
}

// The errno of a failed platform call, never 0.
int failureCode(const VNFsStatus& status) { return status.code ? status.code : EIO; }

int layDownSymlink(vnudtc_context* context, FTS* walk, FTSENT* entry, const char* destination,
                   const char* relative) {
  const bool directory = entry->fts_info == FTS_D || entry->fts_info == FTS_DP;
  char link[VNUDTLinkBufferSize] = {};
  dataTemplateLinkForPath(relative, directory, link);
  ::unlink(destination);
  if (::symlink(link, destination) != 0 && errno != 0) {
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

int layDownClone(vnudtc_context* context, FTS* walk, FTSENT* entry, const char* destination,
                 const std::string& firstCopy) {
  ::unlink(destination);
  VNFsStatus status = context->clone->clone(firstCopy, destination, /*follow=*/false);
  if (!status.ok()) {
    int code = status.code;
    context->copier->log("could not create clone at %s (of %s): %d (%s)", destination, firstCopy,
                         code, std::strerror(code));
    if (code != 0) return code;
  }
  if (int result = vnudtc_preserve_metadata(context, entry, destination, FTS_F)) return result;
  context->cloned_items += 1;
  vnudtc_increment_progress(context, entry->fts_statp, /*withoutBytes=*/context->has_duplicates);
  return vnudtc_skip_entry(context, walk, entry);
}

// The WARD bits of the source replace those of the destination.
int preserveWARDFlags(vnudtc_context* context, const char* destination, std::uint32_t sourceFlags) {
  std::uint32_t current = 0;
  VNFsStatus status = context->fileFlags->getFlags(destination, &current);
  if (status.ok()) {
    std::uint32_t wanted = (sourceFlags & VNFileFlag::WARDMask) | (current & ~VNFileFlag::WARDMask);
    if (wanted != current) status = context->fileFlags->setFlags(destination, wanted);
  }
  if (status.ok() || status.code == 0) return 0;
  context->copier->log("could not preserve WARD flags for %s: %d (%s)", destination, status.code,
                       std::strerror(status.code));
  return status.code;
}

// Storage-tier flags are carried over where they differ; a failure is only
// logged.
void preserveTierFlags(vnudtc_context* context, const char* source, const char* destination) {
  std::uint64_t from = 0, to = 0;
  if (!context->tiers->getTierFlags(source, /*follow=*/false, &from).ok()) from = 0;
  if (!context->tiers->getTierFlags(destination, /*follow=*/false, &to).ok()) to = 0;
  from &= VNTierFlag::Mask;
  to &= VNTierFlag::Mask;
  if (from == to) return;
  VNFsStatus status = context->tiers->setFastPromotion(
      destination, (from & VNTierFlag::FastPromotion) != 0, /*follow=*/false);
  if (status.ok()) {
    auto pin = (from & VNTierFlag::PinnedFast)   ? VNStorageTiers::Pin::Fast
               : (from & VNTierFlag::PinnedSlow) ? VNStorageTiers::Pin::Slow
                                                 : VNStorageTiers::Pin::None;
    status = context->tiers->setPin(destination, pin, /*follow=*/false);
  }
  if (!status.ok())
    context->copier->log("could not preserve QRFS Tandem flags for %s: %d (%s)", destination,
                         status.code, std::strerror(status.code));
}

}  // namespace

int vnudtc_visit_preorder(vnudtc_context* context, FTS* walk, FTSENT* entry,
                          const char* destination) {
  const char* relative = relativePath(context, entry);
  const bool directory = entry->fts_info == FTS_D;
  if (!isSymlinkKind(entry->fts_info) && context->copier->_shouldSymlinkPath(relative, directory))
    return layDownSymlink(context, walk, entry, destination, relative);

  const struct stat* st = entry->fts_statp;
  if (entry->fts_info == FTS_F && st->st_nlink >= 2) {
    vnudtc_context::FileID id{st->st_dev, st->st_ino};
    auto found = context->inode_paths.find(id);
    if (found != context->inode_paths.end())
      return layDownClone(context, walk, entry, destination, found->second);
    context->inode_paths.emplace(id, destination);
  }

  VNCopyOptions options = directory ? VNCopyOptionSet::Directory : VNCopyOptionSet::Full;
  VNFsStatus status = context->copyItem->copyItem(
      sourceItem(context, entry), destinationItem(context, entry, destination), options, entry->fts_statp);
  int code = status.ok() ? 0 : failureCode(status);
  if (code == 0) code = directory ? enterFolder(context, entry, destination) : 0;
  if (code == 0) return 0;
  context->copier->log("could not copy %s -> %s: %d (%s)\n", entry->fts_path, destination, code,
                       std::strerror(code));
  return code;
}

int vnudtc_visit_postorder(vnudtc_context* context, FTSENT* entry, const char* destination) {
  if (entry->fts_pointer == doneMark()) return 0;
  // A folder's own metadata is named through its parent.
  if (entry->fts_info == FTS_DP) context->folders.resize(static_cast<size_t>(entry->fts_level));
  if (int result = vnudtc_preserve_metadata(context, entry, destination, entry->fts_info))
    return result;
  vnudtc_increment_progress(context, entry->fts_statp, /*withoutBytes=*/false);
  return 0;
}

int vnudtc_preserve_metadata(vnudtc_context* context, FTSENT* entry, const char* destination,
                             int laidDownKind) {
  // A copy with the full option set and a clone both carry the source's
  // whole flags word, so an item laid down as its own kind (other than a
  // folder, whose stat fields come now) already has the source's WARD bits:
  // only items laid down as something else, and folders, need the step.
  const bool sameItem = laidDownKind == entry->fts_info && laidDownKind != FTS_DP;
  if (!sameItem) {
    std::uint32_t sourceFlags = 0;
    VNFsStatus status = context->fileFlags->getFlags(entry->fts_path, &sourceFlags);
    if (!status.ok()) {
      context->copier->log("could not preserve WARD flags for %s: %d (%s)", destination,
                           status.code, std::strerror(status.code));
      return failureCode(status);
    }
    if (int result = preserveWARDFlags(context, destination, sourceFlags)) return result;
  }

  if (laidDownKind == FTS_F || laidDownKind == FTS_DP)
    preserveTierFlags(context, entry->fts_path, destination);

  // A regular file copied as itself needs its stat fields again only when
  // compressed: of its flags word only that bit is asked for.
  bool statNeeded = !sameItem;
  if (sameItem && laidDownKind == FTS_F && mayBeCompressed(context, entry)) {
    VNFsStatus status = context->compression->isCompressed(sourceItem(context, entry), &statNeeded);
    if (status.code == ENOTSUP) {
      statNeeded = false;
    } else if (!status.ok()) {
      context->copier->log("could not preserve WARD flags for %s: %d (%s)", destination,
                           status.code, std::strerror(status.code));
      return failureCode(status);
    }
  }
  if (!statNeeded) return 0;
  VNFsStatus status = context->copyItem->copyItem(
      sourceItem(context, entry), destinationItem(context, entry, destination), VNCopyOptionSet::StatOnly);
  if (status.ok()) return 0;
  context->copier->log("could not preserve stat fields for %s: %d (%s)", destination, status.code,
                       std::strerror(status.code));
  return failureCode(status);
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

int vnudtc_skip_entry(vnudtc_context*, FTS* walk, FTSENT* entry) {
  if (::fts_set(walk, entry, FTS_SKIP) != 0) return errno ? errno : EINVAL;
  entry->fts_pointer = doneMark();
  return 0;
}
