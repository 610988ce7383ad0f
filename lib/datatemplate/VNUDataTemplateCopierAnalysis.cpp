// Walking the template's BOM with symlinked entries replaced, and sizing the
// template from it.
#include <sys/stat.h>

#include <limits>
#include <set>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNAnalysisForReceipt.h"

namespace {

// A symbolic link with permissions 755.
constexpr std::uint16_t kSymlinkEntryMode = 0120755;

// The symbolic-link entry that takes the place of `entry` in a walk.
VNBomEntryPtr symlinkEntryReplacing(BomEntry* entry, bool isDirectory) {
  char link[VNUDTLinkBufferSize] = {};
  dataTemplateLinkForPath(bom_entry_path_name(entry), isDirectory, link);
  return VNUDataTemplateSymlinkEntry({bom_entry_path_name(entry), bom_entry_short_name(entry), link});
}

}  // namespace

VNBomEntryPtr VNUDataTemplateSymlinkEntry(const VNUDataTemplateSymlinkedItem& item) {
  VNBomEntryPtr replacement(bom_entry_new(BomEntryTypeSymlink));
  bom_entry_set_flags(replacement.get(), BomOptionStat | BomOptionChecksums);
  bom_entry_set_mode(replacement.get(), kSymlinkEntryMode);
  bom_entry_set_path_name(replacement.get(), item.path.c_str());
  bom_entry_set_short_name(replacement.get(), item.shortName.c_str());
  bom_entry_set_symlink_target(replacement.get(), item.target.c_str());
  return replacement;
}

BomStore* VNUDataTemplateCopier::_openDataTemplateBOM() const {
  return bom_open(dataTemplateBOMURL().path().c_str());
}

void VNUDataTemplateCopier::_enumerateDataTemplateBOM(BomStore* store, const BOMWalkBlock& block) {
  if (!store) return;
  VNBomEntryPtr root(bom_root_entry(store));
  if (!root) return;
  VNBomEnumeratorPtr walker(bom_enumerator_new(store, root.get()));
  if (!walker) return;
  while (VNBomEntryPtr entry{bom_enumerator_next(walker.get())}) {
    BomEntryType type = bom_entry_type(entry.get());
    bool isDirectory = type == BomEntryTypeDirectory;
    bool symlinked = type != BomEntryTypeSymlink && _shouldSymlinkPath(bom_entry_path_name(entry.get()), isDirectory);
    if (symlinked) {
      entry = symlinkEntryReplacing(entry.get(), isDirectory);
      bom_enumerator_skip(walker.get());
    }
    block(store, entry.get(), symlinked);
  }
}

void VNUDataTemplateCopier::analyzeDataTemplate() {
  std::uint64_t items = 0, bytes = 0, symlinked = 0, duplicates = 0;
  loadSymlinkedPatternsIfNeeded();

  struct stat status;
  if (::lstat(dataTemplateBOMURL().path().c_str(), &status) == 0) {
    ++items;
    if (S_ISREG(status.st_mode)) bytes += static_cast<std::uint64_t>(status.st_size);
  }

  std::set<std::string, std::less<>> hardLinkGroups;
  char group[BomHardlinkPathBufferSize] = {};
  VNBomStorePtr store(_openDataTemplateBOM());
  auto forReceipt = std::make_shared<AnalysisForReceipt>();
  forReceipt->filePatterns = symlinkedFilePatterns();
  forReceipt->directoryPatterns = symlinkedDirectoryPatterns();
  _enumerateDataTemplateBOM(store.get(), [&](BomStore* walked, BomEntry* entry, bool isSymlinked) {
    ++items;
    if (isSymlinked) {
      ++symlinked;
      forReceipt->symlinked.push_back(
          {bom_entry_path_name(entry), bom_entry_short_name(entry), bom_entry_symlink_target(entry)});
    }
    if (bom_entry_type(entry) != BomEntryTypeFile) return;
    if (!bom_entry_hardlink_path(walked, entry, 0, group)) {
      bytes += bom_entry_size(entry);
    } else if (hardLinkGroups.contains(std::string_view(group))) {
      ++duplicates;
    } else {
      hardLinkGroups.emplace(group);
      bytes += bom_entry_size(entry);
    }
  });
  // The BOM lies on the system volume: keeping it open would keep that
  // volume busy for as long as the copier lives.
  bool hasBOM = store != nullptr;
  store.reset();
  analysisForReceipt_ = hasBOM ? std::move(forReceipt) : nullptr;

  // The template root itself, which the walk does not return.
  items = items == std::numeric_limits<std::uint64_t>::max() ? 1 : items + 1;
  log("analyzed data template%s: %lu items (%.2f MB), %lu duplicate items, %lu symlinked items",
      hasBOM ? "" : "without BOM", items, static_cast<double>(bytes) / 1000000.0, duplicates, symlinked);
  hasDataTemplateBOM_ = hasBOM;
  totalItems_ = items;
  totalBytes_ = bytes;
  totalSymlinkedItems_ = symlinked;
  totalDuplicateItems_ = duplicates;
}

void VNUDataTemplateCopier::analyzeDataTemplateIfNeeded() {
  if (totalItems_ == 0) analyzeDataTemplate();
}
