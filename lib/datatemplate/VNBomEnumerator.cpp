// Depth-first walks over a BOM store.
#include <string>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/internal/VNBomKey.h"
#include "datatemplate/internal/VNBomStoreData.h"

// A walk is one range scan in key order over [first descendant of the start,
// end of its subtree). The statement keeps its place between calls; after an
// edit of the store, or a skip, it is re-seeked just past what was returned
// last (or past its subtree), so edits are neither missed nor repeated.
// resumeFrom is the key returned last with a NUL byte appended (its first
// descendant), or with 0x01 after a skip (the end of its subtree); it is
// rewritten in place for every entry, so a walk allocates nothing for it.
struct BomEnumerator {
  std::shared_ptr<VNBomDatabase> db;
  VNSqliteStatement walk;
  std::string end;
  std::string resumeFrom;
  bool lastWasDirectory = false;
  bool mustSeek = true;
  uint64_t generation = 0;
};

namespace {

bool seek(BomEnumerator& walk) {
  sqlite3_stmt* statement = walk.walk.get();
  sqlite3_reset(statement);
  walk.mustSeek = false;
  walk.generation = walk.db->generation();
  return VNSqliteBindBytes(statement, 1, walk.resumeFrom) == SQLITE_OK &&
         VNSqliteBindBytes(statement, 2, walk.end) == SQLITE_OK;
}

}  // namespace

BomEnumerator* bom_enumerator_new(BomStore* store, const BomEntry* start) {
  if (!store || !start) return nullptr;
  std::optional<std::string> key = VNBomKeyForPath(bom_entry_path_name(start));
  if (!key) return nullptr;
  auto* walk = new BomEnumerator;
  walk->db = store->db;
  walk->walk = store->db->prepareRange();
  walk->end = VNBomKeyAfterSubtree(*key);
  walk->resumeFrom = VNBomKeyOfFirstDescendant(*key);
  if (!walk->walk) {
    delete walk;
    return nullptr;
  }
  return walk;
}

BomEntry* bom_enumerator_next(BomEnumerator* walk) {
  if (!walk) return nullptr;
  if ((walk->mustSeek || walk->generation != walk->db->generation()) && !seek(*walk))
    return nullptr;
  std::string_view key;
  std::unique_ptr<BomEntry> entry;
  if (sqlite3_step(walk->walk.get()) == SQLITE_ROW)
    entry = VNBomDatabase::entryFromRow(walk->walk.get(), &key);
  // A row out of order can come only from a file changed while open; ending
  // the walk there keeps it finite.
  if (!entry || key < walk->resumeFrom) {
    // Stepping a finished statement would start it over: seek next time.
    walk->mustSeek = true;
    return nullptr;
  }
  walk->lastWasDirectory = entry->type == BomEntryTypeDirectory;
  walk->resumeFrom.assign(key).push_back('\0');
  return entry.release();
}

void bom_enumerator_skip(BomEnumerator* walk) {
  if (!walk || !walk->lastWasDirectory) return;
  walk->resumeFrom.back() = '\x01';
  walk->lastWasDirectory = false;
  walk->mustSeek = true;
}

void bom_enumerator_free(BomEnumerator* walk) { delete walk; }
