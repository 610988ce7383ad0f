#pragma once

#include <memory>

#include "datatemplate/VNBomStore.h"

// Owning handles over the BOM store's C interface, for code outside the
// store that opens stores, walks them and receives entries.
struct VNBomStoreFree {
  void operator()(BomStore* store) const { bom_free(store); }
};
struct VNBomEntryFree {
  void operator()(BomEntry* entry) const { bom_entry_free(entry); }
};
struct VNBomEnumeratorFree {
  void operator()(BomEnumerator* enumerator) const { bom_enumerator_free(enumerator); }
};

using VNBomStorePtr = std::unique_ptr<BomStore, VNBomStoreFree>;
using VNBomEntryPtr = std::unique_ptr<BomEntry, VNBomEntryFree>;
using VNBomEnumeratorPtr = std::unique_ptr<BomEnumerator, VNBomEnumeratorFree>;
