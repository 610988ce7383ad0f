#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

struct BomStore;

// The receipt of a data template laid down on a target system: its receipt
// BOM, read through the BOM store, and the package version recorded in the
// receipt property list beside it (same name, ".plist" for ".bom").
class VN_EXPORT VNTemplateReceipt {
 public:
  // Null when the BOM cannot be opened or is not one of ours.
  static std::unique_ptr<VNTemplateReceipt> receiptWithBOMPath(const std::string& bomPath);
  ~VNTemplateReceipt();
  VNTemplateReceipt(const VNTemplateReceipt&) = delete;
  VNTemplateReceipt& operator=(const VNTemplateReceipt&) = delete;

  // The entry at `relativePath` (relative to the template root) as a
  // dictionary; a regular file with a recorded checksum holds it under
  // "_bom_checksum". Null when the receipt has no such entry.
  std::optional<VNValue> attributesForRelativePath(const std::string& relativePath) const;
  // "PackageVersion" of the receipt property list, or null.
  const std::optional<std::string>& packageVersion() const { return packageVersion_; }
  // Calls `visit` with the relative path and recorded checksum of every
  // regular file at or below `relativePath`, in the BOM's order.
  void forEachFileChecksum(const std::string& relativePath,
                           const std::function<void(const std::string&, std::uint32_t)>& visit) const;

 private:
  VNTemplateReceipt(BomStore* store, std::optional<std::string> packageVersion);
  BomStore* store_;
  std::optional<std::string> packageVersion_;
};
