// The receipts of a copy: the receipt BOM, which lists the template as it was
// laid down (symlinked items as their symbolic links), and the step that
// writes both receipt files.
#include <sys/stat.h>

#include <future>
#include <utility>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNAnalysisForReceipt.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "platform/VNCompression.h"
#include "platform/VNPlatformService.h"

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

BomStore* VNUDataTemplateCopier::prepareReceiptBOM(const VNFileURL& bomURL) {
  std::shared_ptr<AnalysisForReceipt> analysis = std::move(analysisForReceipt_);
  VNBomStorePtr templateBOM(analysis && analysis->matches(*this) ? _openDataTemplateBOM() : nullptr);
  if (templateBOM) {
    VNBomStorePtr store(bom_new_from_bom(bomURL.path().c_str(), templateBOM.get()));
    if (store) {
      for (const VNUDataTemplateSymlinkedItem& item : analysis->symlinked)
        replaceEntry(store.get(), VNUDataTemplateSymlinkEntry(item).get());
    }
    return store.release();
  }
  VNBomStorePtr store(_openDataTemplateBOMForWritingToPath(bomURL.path().c_str()));
  _enumerateDataTemplateBOM(store.get(), [](BomStore* walked, BomEntry* entry, bool symlinked) {
    if (symlinked) replaceEntry(walked, entry);
  });
  return store.release();
}

bool VNUDataTemplateCopier::commitReceiptBOM(BomStore* prepared, const VNFileURL& bomURL, VNError* error) {
  VNBomStorePtr store(prepared);
  if (bom_commit(store.get()) != 0) {
    VNSetError(error, VNError(VNUDataTemplateErrorDomain, VNUDataTemplateErrorReceiptBOM));
    log("failed to write receipt BOM to %s", bomURL.path());
    return false;
  }
  // The receipt is rarely read again; where the file system compresses, it
  // keeps the receipt small. Without compression the file stays as written.
  VNPlatformSlot<VNCompression>::get()->setCompressed(bomURL.path(), /*compressed=*/true);
  store.reset();
  log("wrote receipt BOM to %s", bomURL.path());
  return true;
}

bool VNUDataTemplateCopier::_writeDataTemplateReceiptBOMToURL(const VNFileURL& bomURL, VNError* error) {
  return commitReceiptBOM(prepareReceiptBOM(bomURL), bomURL, error);
}

bool VNUDataTemplateCopier::_writeDataTemplateReceiptIfNeededToURL(const VNFileURL& targetURL,
                                                                   VNError* error) {
  VNFileURL folder =
      targetURL.URLByAppendingPathComponent(VNDataTemplateLocations::kReceiptsFolder, /*isDirectory=*/true);
  std::string name = VNUDTTemplateReceiptIdentifier;
  VNFileURL plistURL = folder.URLByAppendingPathComponent(name + ".plist");
  VNFileURL bomURL = folder.URLByAppendingPathComponent(name + ".bom");
  struct stat status;
  if (::stat(folder.path().c_str(), &status) != 0) {
    log("skipping data template receipts, directory not present: %s", folder.path());
    return true;
  }
  // Syncing the property list waits for the file system's journal, which
  // holds the whole copy by now; the BOM is built meanwhile (on a second
  // thread where one can be had) and committed only once the property list
  // is in place.
  auto plist = std::async(std::launch::async | std::launch::deferred, [this, plistURL] {
    VNError plistError;
    bool written = _writeDataTemplateReceiptPlistToURL(plistURL, &plistError);
    return std::make_pair(written, std::move(plistError));
  });
  BomStore* bom = prepareReceiptBOM(bomURL);
  auto [written, plistError] = plist.get();
  if (!written) {
    VNBomStorePtr discarded(bom);
    VNSetError(error, std::move(plistError));
    return false;
  }
  return commitReceiptBOM(bom, bomURL, error);
}
