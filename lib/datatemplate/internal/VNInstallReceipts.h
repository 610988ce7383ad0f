#pragma once

#include <string>

// The receipts and the replaced items of an installation on the data volume
// held by `dataFd` (docs/installation.md). Functions return 0 or an errno
// value; nothing follows a symbolic link found on the data volume.

// Removes the receipts an earlier installation placed, so that receipts on a
// data volume always mean that its last installation finished.
[[nodiscard]] int VNRemovePlacedReceipts(int dataFd);

// Moves the receipts the copy wrote below the temporary folder into the
// holding folder, where the shove does not take them. Receipts the copy did
// not write are no error.
[[nodiscard]] int VNHoldReceipts(int dataFd);

// Moves the held receipts into the data volume's receipts folder, the
// installation's last change, and removes the holding folder.
[[nodiscard]] int VNPlaceHeldReceipts(int dataFd);

// Creates this installation's folder for the items the shove replaces,
// below kReplacedItems and named after the current UTC time; sets
// `*relative` to its path relative to the data volume.
[[nodiscard]] int VNMakeReplacedItemsFolder(int dataFd, std::string* relative);

// Removes that folder, and kReplacedItems, when nothing was kept in them.
void VNDropReplacedItemsFolderIfEmpty(int dataFd, const std::string& relative);
