// The receipts of a copy: the receipt BOM, which lists the template as it was
// laid down (symlinked items as their symbolic links), and the step that
// writes both receipt files.
#include <fcntl.h>

#include <cerrno>

#include <future>
#include <utility>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNAnalysisForReceipt.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "platform/VNCompression.h"
#include "platform/VNPlatformService.h"
#include "platform/internal/VNItemFd.h"
#include "platform/internal/VNBeneath.h"
#include "foundation/VNUniqueFd.h"

BomStore* VNUDataTemplateCopier::_openDataTemplateBOMForWritingToPath(const char* path) const {
  if (VNBomStorePtr templateBOM{_openDataTemplateBOM()}) return bom_new_from_bom(path, templateBOM.get());
  return bom_new_from_directory(path, dataTemplateURL().path().c_str(), BomOptionStat | BomOptionChecksums);
}

namespace {

void replaceEntry(BomStore* store, BomEntry* entry) {
  if (VNBomEntryPtr stored{bom_entry_at_path(store, bom_entry_path_name(entry))})
    bom_remove_entry(store, stored.get());
  bom_insert_entry(store, entry, BomInsertReplaceExisting);
}

}  // namespace

BomStore* VNUDataTemplateCopier::prepareReceiptBOM(const std::string& path) {
  std::shared_ptr<AnalysisForReceipt> analysis = std::move(analysisForReceipt_);
  VNBomStorePtr templateBOM(analysis && analysis->matches(*this) ? _openDataTemplateBOM() : nullptr);
  if (templateBOM) {
    VNBomStorePtr store(bom_new_from_bom(path.c_str(), templateBOM.get()));
    if (store) {
      for (const VNUDataTemplateSymlinkedItem& item : analysis->symlinked)
        replaceEntry(store.get(), VNUDataTemplateSymlinkEntry(item).get());
    }
    return store.release();
  }
  VNBomStorePtr store(_openDataTemplateBOMForWritingToPath(path.c_str()));
  _enumerateDataTemplateBOM(store.get(), [](BomStore* walked, BomEntry* entry, bool symlinked) {
    if (symlinked) replaceEntry(walked, entry);
  });
  return store.release();
}

bool VNUDataTemplateCopier::commitReceiptBOM(BomStore* prepared, const ReceiptFile& bom, VNError* error) {
  VNBomStorePtr store(prepared);
  if (bom_commit(store.get()) != 0) {
    VNSetError(error, VNError(VNUDataTemplateErrorDomain, VNUDataTemplateErrorReceiptBOM));
    log("failed to write receipt BOM to %s", bom.shown);
    return false;
  }
  // The receipt is rarely read again; where the file system compresses, it
  // keeps the receipt small. Without compression the file stays as written.
  VNPlatformSlot<VNCompression>::get()->setCompressed(bom.written, /*compressed=*/true);
  store.reset();
  log("wrote receipt BOM to %s", bom.shown);
  return true;
}

bool VNUDataTemplateCopier::_writeDataTemplateReceiptBOMToURL(const VNFileURL& bomURL, VNError* error) {
  return commitReceiptBOM(prepareReceiptBOM(bomURL.path()), {bomURL.path(), bomURL.path()}, error);
}

bool VNUDataTemplateCopier::_writeDataTemplateReceiptIfNeededToURL(const VNFileURL& targetURL,
                                                                   VNError* error) {
  const char* const relative = VNDataTemplateLocations::kReceiptsFolder;
  const VNFileURL folderURL = targetURL.URLByAppendingPathComponent(relative, /*isDirectory=*/true);
  const std::string& shownFolder = folderURL.path();
  // The receipts folder is reached from the target without following a
  // link: one in the copy must never carry the receipts out of it.
  VNUniqueFd target(::open(targetURL.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  VNUniqueFd folder(target ? VNOpenFolderBeneath(target.get(), relative) : -1);
  if (!folder) {
    if (errno == ELOOP)
      log("skipping data template receipts, directory is or lies below a symbolic link: %s", shownFolder);
    else
      log("skipping data template receipts, directory not present: %s", shownFolder);
    return true;
  }
  const std::string name = VNUDTTemplateReceiptIdentifier;
  const std::string held = VNProcFdPath(folder.get()) + "/";
  const ReceiptFile plist{held + name + ".plist", folderURL.URLByAppendingPathComponent(name + ".plist").path()};
  const ReceiptFile bomFile{held + name + ".bom", folderURL.URLByAppendingPathComponent(name + ".bom").path()};

  // Syncing the property list waits for the file system's journal, which
  // holds the whole copy by now; the BOM is built meanwhile (on a second
  // thread where one can be had) and committed only once the property list
  // is in place. The second thread only writes: everything is logged here.
  const VNValue receipt = receiptPropertyList();
  auto writing = std::async(std::launch::async | std::launch::deferred, [&receipt, &plist] {
    VNError writeError;
    bool written = receipt.writePropertyListFile(plist.written, VNValue::Format::XML, &writeError);
    return std::make_pair(written, std::move(writeError));
  });
  BomStore* bom = prepareReceiptBOM(bomFile.written);
  auto [written, writeError] = writing.get();
  if (!reportReceiptPlist(written, plist.shown, writeError, error)) {
    VNBomStorePtr discarded(bom);
    return false;
  }
  return commitReceiptBOM(bom, bomFile, error);
}
