// Receipts arrive last: the copy writes them into the temporary folder, they
// wait in a holding folder while the shove and the forcing run, and only then
// move into the data volume's receipts folder.
#include "datatemplate/internal/VNInstallReceipts.h"

#include <cerrno>
#include <ctime>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "platform/internal/VNBeneath.h"

namespace {

using namespace VNDataTemplateLocations;

// The BOM first: the property list is what readers look for.
std::string receiptName(int index) {
  return std::string(VNUDTTemplateReceiptIdentifier) + (index == 0 ? ".bom" : ".plist");
}
constexpr int kReceiptCount = 2;

std::string utcStamp() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H-%M-%SZ", &parts);
  return text;
}

}  // namespace

int VNRemovePlacedReceipts(int dataFd) {
  for (int i = 0; i < kReceiptCount; ++i)
    if (int err = VNRemoveFileBeneath(dataFd, kReceiptsFolder, receiptName(i)); err != 0 && err != ELOOP)
      return err;
  return 0;
}

int VNHoldReceipts(int dataFd) {
  if (int err = VNMakeFolderBeneath(dataFd, kHeldReceipts, 0700)) return err;
  const std::string written = std::string(kTemporaryFolder) + "/" + kReceiptsFolder;
  for (int i = 0; i < kReceiptCount; ++i) {
    int err = VNMoveFileBeneath(dataFd, written, dataFd, kHeldReceipts, receiptName(i));
    if (err != 0 && err != ENOENT && err != ELOOP) return err;
  }
  return 0;
}

int VNPlaceHeldReceipts(int dataFd) {
  for (int i = 0; i < kReceiptCount; ++i) {
    const std::string name = receiptName(i);
    if (!VNEntryExistsBeneath(dataFd, kHeldReceipts, name)) continue;  // the copy wrote none
    if (int err = VNMoveFileBeneath(dataFd, kHeldReceipts, dataFd, kReceiptsFolder, name)) return err;
  }
  return VNRemoveEmptyFolderBeneath(dataFd, kHeldReceipts);
}

int VNMakeReplacedItemsFolder(int dataFd, std::string* relative) {
  if (int err = VNMakeFolderBeneath(dataFd, kReplacedItems, 0700); err != 0 && err != EEXIST) return err;
  const std::string base = std::string(kReplacedItems) + "/" + utcStamp();
  for (int attempt = 1;; ++attempt) {
    *relative = attempt == 1 ? base : base + "." + std::to_string(attempt);
    const int err = VNMakeFolderBeneath(dataFd, *relative, 0700);
    if (err != EEXIST) return err;
  }
}

void VNDropReplacedItemsFolderIfEmpty(int dataFd, const std::string& relative) {
  if (VNRemoveEmptyFolderBeneath(dataFd, relative) == 0) (void)VNRemoveEmptyFolderBeneath(dataFd, kReplacedItems);
}
