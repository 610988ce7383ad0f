#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "datatemplate/internal/VNBomEntryData.h"
#include "datatemplate/internal/VNSqlite.h"

class VNError;

// Marks in the SQLite header of every BOM file ("VNBM" and layout version).
inline constexpr uint32_t kVNBomApplicationId = 0x564E424D;
inline constexpr uint32_t kVNBomSchemaVersion = 1;
// Largest BOM file bom_open reads.
inline constexpr uint64_t kVNBomMaxFileBytes = 1ull << 30;

// One BOM as an SQLite database held in memory: read-only when it came from a
// file, writable when created. Not thread-safe. Every edit advances
// generation(), which enumerators watch to re-seek after the store changed.
class VNBomDatabase {
 public:
  // Reads the BOM file at `path` and checks that it is ours, of our layout
  // version and intact.
  static std::shared_ptr<VNBomDatabase> openFile(const std::string& path, VNError* error);
  // An empty writable BOM with our schema.
  static std::shared_ptr<VNBomDatabase> createEmpty(VNError* error);
  // A writable copy of `source`.
  static std::shared_ptr<VNBomDatabase> copyOf(VNBomDatabase& source, VNError* error);

  bool readOnly() const { return readOnly_; }
  uint64_t generation() const { return generation_; }
  sqlite3* handle() const { return db_.get(); }

  // The entry stored under `key`, or null.
  std::unique_ptr<BomEntry> lookup(std::string_view key);
  // Stores `entry` under `key`; false when the store is read-only, the entry
  // invalid, or (without `replace`) the key taken.
  bool insert(std::string_view key, const BomEntry& entry, bool replace);
  // Removes the entry under `key` and every entry below it.
  bool removeSubtree(std::string_view key);
  // Sets the hard-link group of the entry under `key`.
  bool setHardlinkGroup(std::string_view key, std::string_view group);

  // Groups many inserts into one transaction.
  bool begin();
  bool commitTransaction();
  void rollback();

  // A statement over the entries with keys in [?1, ?2) in key order, its
  // columns readable with entryFromRow().
  VNSqliteStatement prepareRange() const;
  // The entry of the current row of a statement made by prepareRange() or
  // lookup's, with its key.
  static std::unique_ptr<BomEntry> entryFromRow(sqlite3_stmt* statement, std::string* key);

  // The database image as a file holds it; empty on failure.
  VNSqliteBuffer serialize(uint64_t* size, VNError* error) const;

 private:
  VNBomDatabase(VNSqliteDb db, bool readOnly) : db_(std::move(db)), readOnly_(readOnly) {}
  bool prepareStatements();
  bool step(sqlite3_stmt* statement);

  VNSqliteDb db_;
  bool readOnly_;
  uint64_t generation_ = 0;
  VNSqliteStatement lookup_, insert_, replace_, remove_, setGroup_, begin_, commit_, rollback_;
};
