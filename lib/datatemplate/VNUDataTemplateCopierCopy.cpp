// Laying the whole template down on a target: the public copy and the walk
// that drives the copy engine's visit functions.
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateCopyEngine.h"
#include "platform/VNPlatformService.h"

namespace {

struct FtsClose {
  void operator()(FTS* walk) const { ::fts_close(walk); }
};
using WalkHandle = std::unique_ptr<FTS, FtsClose>;

constexpr double kMegabyte = 1000000.0;

// Dispatches one entry by kind; returns 0 or the errno that ends the walk.
int visit(vnudtc_context& context, FTS* walk, FTSENT* entry, const char* destination) {
  switch (entry->fts_info) {
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
      return entry->fts_errno;
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
  if (::access(templatePath.c_str(), F_OK) != 0) {
    log("skipping data template copy, template not present: %s", templatePath);
    return true;
  }
  char* roots[] = {const_cast<char*>(templatePath.c_str()), nullptr};
  WalkHandle walk(::fts_open(roots, FTS_COMFOLLOW | FTS_NOCHDIR | FTS_PHYSICAL, nullptr));
  if (!walk) {
    VNError failure(VNPOSIXErrorDomain, errno, {{VNFilePathErrorKey, VNValue(templatePath)}});
    VNSetError(error, std::move(failure));
    return false;
  }

  vnudtc_context context;
  context.copier = this;
  context.progress = std::move(progress);
  context.has_duplicates = totalDuplicateItems() != 0;
  context.root_length = templatePath.size();
  context.copyItem = VNPlatformSlot<VNCopyItem>::get();
  context.clone = VNPlatformSlot<VNClone>::get();
  context.fileFlags = VNPlatformSlot<VNFileFlags>::get();
  context.tiers = VNPlatformSlot<VNStorageTiers>::get();
  context.compression = VNPlatformSlot<VNCompression>::get();

  vnudtc_send_progress(&context);
  std::string destination;
  while (FTSENT* entry = ::fts_read(walk.get())) {
    destination.assign(targetPath).append(entry->fts_path + context.root_length);
    if (int result = visit(context, walk.get(), entry, destination.c_str())) {
      const std::string& path = isVisitedKind(entry->fts_info) ? destination : std::string(entry->fts_path);
      context.error = VNError(VNPOSIXErrorDomain, result, {{VNFilePathErrorKey, VNValue(path)}});
      break;
    }
  }
  vnudtc_send_progress(&context);
  walk.reset();

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
