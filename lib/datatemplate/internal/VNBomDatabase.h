#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "datatemplate/internal/VNBomEntryData.h"
#include "datatemplate/internal/VNBomFile.h"
#include "datatemplate/internal/VNSqlite.h"

class VNError;

// Marks in the SQLite header of every BOM file ("VNBM" and layout version).
inline constexpr uint32_t kVNBomApplicationId = 0x564E424D;
inline constexpr uint32_t kVNBomSchemaVersion = 1;

// One BOM as an SQLite database on disk, read through SQLite's page cache of
// bounded size, so memory does not grow with the BOM. Read-only when it came
// from a file; writable when created, in a temporary file beside the BOM's
// path that commit() renames into place. Not thread-safe. Every edit advances
// generation(), which enumerators watch to re-seek after the store changed.
class VNBomDatabase {
 public:
  // Opens the BOM file at `path` read-only and checks that it is ours, of our
  // layout version and intact. The connection keeps a shared lock on the
  // file while it lives; a file changed under it anyway makes reads fail
  // (no entry, or the end of a walk), never return an unsound row.
  static std::shared_ptr<VNBomDatabase> openFile(const std::string& path, VNError* error);
  // An empty writable BOM with our schema, to be committed to `path`.
  static std::shared_ptr<VNBomDatabase> createFor(const std::string& path, VNError* error);
  // A writable copy of `source`, to be committed to `path`; the file is
  // copied page by page, and the copy checked as bom_open checks a file.
  static std::shared_ptr<VNBomDatabase> copyFor(const std::string& path, VNBomDatabase& source,
                                                VNError* error);

  bool readOnly() const { return readOnly_; }
  bool committed() const { return committed_; }
  // The temporary file of a writable store before commit.
  const VNBomTempFile& file() const { return temp_; }
  // Errno of the first write that failed, or EINVAL when none did (an entry
  // the table's checks refused).
  int writeErrno() const { return failedErrno_ ? failedErrno_ : EINVAL; }
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
  // rows readable with entryFromRow().
  VNSqliteStatement prepareRange() const;
  // The entry of the current row of a statement made by prepareRange(), its
  // key in `key` until the statement steps again; null when the row breaks
  // what the table's checks promise (the file changed after it was opened).
  static std::unique_ptr<BomEntry> entryFromRow(sqlite3_stmt* statement, std::string_view* key);

  // Makes a writable store durable and renames its file over `path`; from
  // then on the store reads the committed file and takes no more edits.
  // Fails, leaving `path` as it was, after any failed write.
  bool commit(const std::string& path, VNError* error);

 private:
  VNBomDatabase(VNSqliteDb db, bool readOnly, VNBomTempFile temp)
      : temp_(std::move(temp)), db_(std::move(db)), readOnly_(readOnly) {}
  static std::shared_ptr<VNBomDatabase> openWritable(const std::string& path, VNError* error);
  bool prepareStatements();
  bool step(sqlite3_stmt* statement);
  void noteWriteResult(int rc);
  bool syncFile();

  // Destroyed after the connection, which must close before its file goes.
  VNBomTempFile temp_;
  VNSqliteDb db_;
  bool readOnly_;
  bool committed_ = false;
  int failedErrno_ = 0;
  uint64_t generation_ = 0;
  VNSqliteStatement lookup_, insert_, replace_, remove_, setGroup_, begin_, commit_, rollback_;
};
