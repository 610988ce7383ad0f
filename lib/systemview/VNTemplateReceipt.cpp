// The template receipt of a target system, read through our BOM store.
#include "systemview/VNTemplateReceipt.h"

#include "datatemplate/VNBomStore.h"

namespace {

std::optional<std::string> packageVersionBeside(const std::string& bomPath) {
  constexpr std::string_view kBOMSuffix = ".bom";
  if (!bomPath.ends_with(kBOMSuffix)) return std::nullopt;
  std::string plistPath = bomPath.substr(0, bomPath.size() - kBOMSuffix.size()) + ".plist";
  std::optional<VNValue> plist = VNValue::fromPropertyListFile(plistPath);
  const std::string* version = plist ? plist->findString("PackageVersion") : nullptr;
  if (!version) return std::nullopt;
  return *version;
}

bool hasChecksum(const BomEntry* entry) {
  return bom_entry_type(entry) == BomEntryTypeFile && (bom_entry_flags(entry) & BomOptionChecksums);
}

}  // namespace

std::unique_ptr<VNTemplateReceipt> VNTemplateReceipt::receiptWithBOMPath(const std::string& bomPath) {
  BomStore* store = bom_open(bomPath.c_str());
  if (!store) return nullptr;
  return std::unique_ptr<VNTemplateReceipt>(new VNTemplateReceipt(store, packageVersionBeside(bomPath)));
}

VNTemplateReceipt::VNTemplateReceipt(BomStore* store, std::optional<std::string> packageVersion)
    : store_(store), packageVersion_(std::move(packageVersion)) {}

VNTemplateReceipt::~VNTemplateReceipt() { bom_free(store_); }

std::optional<VNValue> VNTemplateReceipt::attributesForRelativePath(const std::string& relativePath) const {
  VNBomEntryPtr entry{bom_entry_at_path(store_, relativePath.c_str())};
  if (!entry) return std::nullopt;
  VNValue attributes = VNValue::dictionary();
  attributes.set("_bom_path", std::string(bom_entry_path_name(entry.get())));
  attributes.set("_bom_type", static_cast<std::int64_t>(bom_entry_type(entry.get())));
  if (hasChecksum(entry.get()))
    attributes.set("_bom_checksum", static_cast<std::int64_t>(bom_entry_checksum(entry.get())));
  return attributes;
}

void VNTemplateReceipt::forEachFileChecksum(
    const std::string& relativePath, const std::function<void(const std::string&, std::uint32_t)>& visit) const {
  VNBomEntryPtr start{bom_entry_at_path(store_, relativePath.c_str())};
  if (!start) return;
  if (hasChecksum(start.get())) visit(bom_entry_path_name(start.get()), bom_entry_checksum(start.get()));
  VNBomEnumeratorPtr walk{bom_enumerator_new(store_, start.get())};
  if (!walk) return;
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())})
    if (hasChecksum(entry.get())) visit(bom_entry_path_name(entry.get()), bom_entry_checksum(entry.get()));
}
