#include "BomTestSupport.h"
#include "support/VNTest.h"

std::vector<std::string> walkPaths(BomStore* store, const char* start) {
  VNBomEntryPtr from(start ? bom_entry_at_path(store, start) : bom_root_entry(store));
  VNBomEnumeratorPtr walk(bom_enumerator_new(store, from.get()));
  std::vector<std::string> paths;
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) paths.emplace_back(bom_entry_path_name(entry.get()));
  return paths;
}

VNBomEntryPtr makeEntry(BomEntryType type, const char* path, uint16_t mode) {
  VNBomEntryPtr entry(bom_entry_new(type));
  bom_entry_set_path_name(entry.get(), path);
  bom_entry_set_mode(entry.get(), mode);
  return entry;
}

BomEntryType typeAt(BomStore* store, const char* path) {
  VNBomEntryPtr entry(bom_entry_at_path(store, path));
  return entry ? bom_entry_type(entry.get()) : 0;
}
