// Laying the whole template down on a target: the public copy and the walk
// that drives the copy engine's visit functions.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNUDataTemplateCopyEngine.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "platform/VNPlatformService.h"

namespace {

constexpr double kMegabyte = 1000000.0;

// Items waiting for the copy's workers, per worker: enough to keep them
// busy while the walk reads a folder, few enough to keep memory flat.
constexpr std::size_t kTasksPerWorker = 64;

// Threads that lay files down beside the walk's own: one fewer than the
// processors this process may run on, at most 7; VARNEL_COPY_THREADS=N asks
// for N threads in all (1: the walk's thread does everything).
unsigned copyWorkers() {
  constexpr unsigned kMostWorkers = 7;
  unsigned threads = 0;
  if (const char* asked = std::getenv("VARNEL_COPY_THREADS")) {
    threads = static_cast<unsigned>(std::strtoul(asked, nullptr, 10));
  } else {
    cpu_set_t cpus;
    threads = ::sched_getaffinity(0, sizeof cpus, &cpus) == 0 ? static_cast<unsigned>(CPU_COUNT(&cpus)) : 1;
  }
  return std::min(threads > 1 ? threads - 1 : 0, kMostWorkers);
}

// Dispatches one entry by kind; returns 0 or the errno that ends the walk.
int visit(vnudtc_context& context, VNTreeWalk* walk, VNTreeEntry* entry, const char* destination) {
  switch (entry->kind) {
    case FTS_F:
    case FTS_SL:
    case FTS_SLNONE:
    case FTS_DEFAULT:
      if (int result = vnudtc_visit_preorder(&context, walk, entry, destination)) return result;
      return vnudtc_visit_postorder(&context, entry, destination);
    case FTS_D:
      return vnudtc_visit_preorder(&context, walk, entry, destination);
    case FTS_DP:
      return vnudtc_visit_postorder(&context, entry, destination);
    default:
      return entry->error;
  }
}

// Entries that end the walk without a visit report their source path.
bool isVisitedKind(int info) {
  return info == FTS_F || info == FTS_SL || info == FTS_SLNONE || info == FTS_DEFAULT ||
         info == FTS_D || info == FTS_DP;
}

}  // namespace

bool VNUDataTemplateCopier::copyDataTemplateToURL(const VNFileURL& target, VNError* error) {
  return copyDataTemplateToURL(target, error, progressHandler());
}

bool VNUDataTemplateCopier::copyDataTemplateToURL(const VNFileURL& target, VNError* error,
                                                  ProgressHandler progress) {
  VNError local;
  if (!error) error = &local;
  analyzeDataTemplateIfNeeded();
  if (!_copyDataTemplateIfNeededToURL(target, error, std::move(progress))) return false;
  return _writeDataTemplateReceiptIfNeededToURL(target, error);
}

bool VNUDataTemplateCopier::_copyDataTemplateIfNeededToURL(const VNFileURL& target, VNError* error,
                                                           ProgressHandler progress) {
  const std::string templatePath = dataTemplateURL().path();
  const std::string& targetPath = target.path();
  lastCopyCounts_ = CopyCounts();
  if (::access(templatePath.c_str(), F_OK) != 0) {
    log("skipping data template copy, template not present: %s", templatePath);
    return true;
  }
  // The template root may be a symbolic link to the folder that holds the
  // template; the walk follows the root, and no link below it.
  const std::string walkedRoot = VNResolvedPath(templatePath);
  VNTreeWalk walk(VNAtPath(walkedRoot.c_str()), walkedRoot, VNTreeWalk::FollowRoot);

  vnudtc_context context;
  context.copier = this;
  context.progress = std::move(progress);
  context.has_duplicates = totalDuplicateItems() != 0;
  context.root_length = walkedRoot.size();
  context.target_length = targetPath.size();
  context.copyItem = VNPlatformSlot<VNCopyItem>::get();
  context.clone = VNPlatformSlot<VNClone>::get();
  context.fileFlags = VNPlatformSlot<VNFileFlags>::get();
  context.tiers = VNPlatformSlot<VNStorageTiers>::get();
  context.compression = VNPlatformSlot<VNCompression>::get();

  if (unsigned workers = copyWorkers())
    context.workers = std::make_unique<VNWorkPool<VNCopyTask>>(workers, kTasksPerWorker * workers);

  vnudtc_send_progress(&context);
  std::string destination;
  while (VNTreeEntry* entry = walk.read()) {
    destination.assign(targetPath).append(entry->path + context.root_length);
    int result = visit(context, &walk, entry, destination.c_str());
    if (result == 0) result = vnudtc_collect_finished(&context);
    if (result != 0) {
      // A failure of an item the workers laid down is already the error.
      const std::string& path = isVisitedKind(entry->kind) ? destination : std::string(entry->path);
      if (!context.error) context.error = VNError(VNPOSIXErrorDomain, result, {{VNFilePathErrorKey, VNValue(path)}});
      break;
    }
  }
  vnudtc_finish_pending(&context);
  vnudtc_send_progress(&context);
  lastCopyCounts_ = {context.items, context.bytes, context.bytes_on_disk, context.cloned_items,
                     context.symlinked_items};

  if (!context.error) {
    log("copied data template from %s -> %s: %lu items (%.2f MB, %.2f MB on disk), %lu cloned "
        "items, %lu symlinked items",
        templatePath, targetPath, context.items, context.bytes / kMegabyte,
        context.bytes_on_disk / kMegabyte, context.cloned_items, context.symlinked_items);
    return true;
  }
  log("failed to copy data template from %s -> %s: %@", templatePath, targetPath, *context.error);
  VNSetError(error, std::move(*context.error));
  return false;
}
