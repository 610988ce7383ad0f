#include "datatemplate/internal/VNBomDatabase.h"

#include <cerrno>

#include "datatemplate/internal/VNBomKey.h"
#include "datatemplate/internal/VNBomSchema.h"
#include "foundation/VNError.h"

const char* const VNBomErrorDomain = "org.varnel.BomStore";

namespace {

// The columns of an entry after its key, in the order readFields() reads them.
constexpr const char* kFieldColumns =
    "type, mode, options, size, checksum, uid, gid, mtime, link_target, link_group";

// Longest text or blob a BOM's connection handles; far above any valid row.
constexpr int kMaxValueBytes = 1 << 20;

// Settings of every BOM connection: b-tree cells checked as pages are read,
// SQLite's own page cache at 4 MiB whatever the BOM's size (no mapping of the
// file, whose pages would count as ours), and the file locked once and kept
// locked (shared for reading, exclusive once written), which spares the
// checks SQLite makes at the start of every statement otherwise.
constexpr const char* kConnectionPragmas =
    "PRAGMA cell_size_check = ON; PRAGMA cache_size = -4096; PRAGMA mmap_size = 0; "
    "PRAGMA locking_mode = EXCLUSIVE;";
// A writable store's file is private until commit syncs and renames it, so
// transactions need not be durable on their own; the rollback journal stays
// in memory and holds only the pages one edit changes.
constexpr const char* kWritablePragmas = "PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF;";

// The reason of the last failure on `db` as an errno: that of the system
// call on the database file that failed, else of any other, where there was
// one.
int sqliteErrno(sqlite3* db) {
  int code = 0;
  if (db) sqlite3_file_control(db, "main", SQLITE_FCNTL_LAST_ERRNO, &code);
  if (code == 0 && db) code = sqlite3_system_errno(db);
  if (code != 0) return code;
  return db && sqlite3_errcode(db) != SQLITE_NOMEM ? EIO : ENOMEM;
}

VNError sqliteFailure(sqlite3* db, const std::string& path, const char* step) {
  return VNError::posix(sqliteErrno(db), path, step);
}

// SQLite reads a name of the form "file:..." as a URI when URIs are enabled
// process-wide; "./" keeps a relative path a plain name.
std::string sqliteFileName(const std::string& path) {
  return path.starts_with('/') ? path : "./" + path;
}

// A connection to the file at `path` that treats it as untrusted input.
VNSqliteDb openHardenedConnection(const std::string& path, bool writable, VNError* error) {
  sqlite3* raw = nullptr;
  // One thread uses a store at a time, so the connection needs no mutex.
  int flags = (writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOMUTEX;
  int rc = sqlite3_open_v2(sqliteFileName(path).c_str(), &raw, flags, nullptr);
  VNSqliteDb db(raw);
  if (rc != SQLITE_OK) return VNSetError(error, sqliteFailure(raw, path, "open")), nullptr;
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_limit(db.get(), SQLITE_LIMIT_LENGTH, kMaxValueBytes);
  std::string pragmas = std::string(kConnectionPragmas) + (writable ? kWritablePragmas : "");
  if (sqlite3_exec(db.get(), pragmas.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    return VNSetError(error, sqliteFailure(db.get(), path, "open")), nullptr;
  return db;
}

VNSqliteStatement prepare(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* raw = nullptr;
  sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
  return VNSqliteStatement(raw);
}

// Reads the columns of kFieldColumns, the first of them at `first`, into
// `entry`. What callers rely on: a known type and texts of bounded length;
// the other fields are plain numbers. False when the row breaks that, which
// only a file changed after it was opened can make it do.
bool readFields(sqlite3_stmt* statement, int first, BomEntry& entry) {
  entry.type = sqlite3_column_int(statement, first);
  std::string_view target = VNSqliteColumnBytes(statement, first + 8);
  std::string_view group = VNSqliteColumnBytes(statement, first + 9);
  if (!VNBomIsKnownType(entry.type) || target.size() > kVNBomMaxLinkTargetBytes ||
      group.size() > kVNBomMaxLinkGroupBytes)
    return false;
  entry.mode = static_cast<uint16_t>(sqlite3_column_int(statement, first + 1));
  entry.options = static_cast<uint16_t>(sqlite3_column_int(statement, first + 2));
  entry.size = static_cast<uint64_t>(sqlite3_column_int64(statement, first + 3));
  entry.checksum = static_cast<uint32_t>(sqlite3_column_int64(statement, first + 4));
  entry.uid = static_cast<uint32_t>(sqlite3_column_int64(statement, first + 5));
  entry.gid = static_cast<uint32_t>(sqlite3_column_int64(statement, first + 6));
  entry.mtime = sqlite3_column_int64(statement, first + 7);
  if (!target.empty()) entry.symlinkTarget = target;
  if (!group.empty()) entry.hardlinkGroup = group;
  return true;
}

// A new entry with the path and short name of `key`, a valid key.
std::unique_ptr<BomEntry> entryAt(std::string_view key) {
  auto entry = std::make_unique<BomEntry>();
  entry->path = VNBomPathForKey(key);
  entry->shortName = VNBomShortNameForKey(key);
  return entry;
}

}  // namespace

std::shared_ptr<VNBomDatabase> VNBomDatabase::openFile(const std::string& path, VNError* error) {
  if (!VNBomCheckFileHeader(path, error)) return nullptr;
  VNSqliteDb db = openHardenedConnection(path, /*writable=*/false, error);
  if (!db) return nullptr;
  std::shared_ptr<VNBomDatabase> bom(new VNBomDatabase(std::move(db), /*readOnly=*/true, {}));
  // The file may have been replaced since its header was checked; these
  // checks read what SQLite opened.
  if (!VNBomHasOurSchema(bom->handle()) || !VNBomRowsAreSound(bom->handle()) ||
      !bom->prepareStatements()) {
    VNSetError(error, VNBomFileError(VNBomErrorDamaged, path, "is a damaged bill of materials"));
    return nullptr;
  }
  // Every read from here on runs in one transaction that lasts as long as
  // the store, instead of each statement beginning and ending its own
  // (about a tenth of a lookup's time). The file is locked throughout
  // either way, and closing the connection ends the transaction.
  if (sqlite3_exec(bom->handle(), "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK)
    return VNSetError(error, sqliteFailure(bom->handle(), path, "open")), nullptr;
  return bom;
}

std::shared_ptr<VNBomDatabase> VNBomDatabase::openWritable(const std::string& path,
                                                           VNError* error) {
  VNBomTempFile temp;
  if (!temp.create(path, error)) return nullptr;
  VNSqliteDb db = openHardenedConnection(temp.path(), /*writable=*/true, error);
  if (!db) return nullptr;
  return std::shared_ptr<VNBomDatabase>(
      new VNBomDatabase(std::move(db), /*readOnly=*/false, std::move(temp)));
}

std::shared_ptr<VNBomDatabase> VNBomDatabase::createFor(const std::string& path, VNError* error) {
  std::shared_ptr<VNBomDatabase> bom = openWritable(path, error);
  if (!bom) return nullptr;
  if (!VNBomInstallSchema(bom->handle()) || !bom->prepareStatements()) {
    VNSetError(error, sqliteFailure(bom->handle(), path, "create bill of materials"));
    return nullptr;
  }
  return bom;
}

std::shared_ptr<VNBomDatabase> VNBomDatabase::copyFor(const std::string& path,
                                                      VNBomDatabase& source, VNError* error) {
  std::shared_ptr<VNBomDatabase> bom = openWritable(path, error);
  if (!bom) return nullptr;
  sqlite3_backup* backup = sqlite3_backup_init(bom->handle(), "main", source.handle(), "main");
  int rc = backup ? sqlite3_backup_step(backup, -1) : SQLITE_ERROR;
  // Finishing accepts null and reports what went wrong during the steps.
  if (sqlite3_backup_finish(backup) != SQLITE_OK || rc != SQLITE_DONE) {
    VNSetError(error, sqliteFailure(bom->handle(), path, "copy bill of materials"));
    return nullptr;
  }
  // The pages come as the source's file holds them now, which, for a file
  // changed since it was opened, need not be what the open checked.
  if (!VNBomHasOurSchema(bom->handle()) || !VNBomRowsAreSound(bom->handle()) ||
      !bom->prepareStatements()) {
    VNSetError(error, VNBomFileError(VNBomErrorDamaged, path,
                                     "would be a copy of a damaged bill of materials"));
    return nullptr;
  }
  return bom;
}

bool VNBomDatabase::prepareStatements() {
  sqlite3* db = db_.get();
  std::string values = std::string(" INTO entries (key, ") + kFieldColumns +
                       ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)";
  // The row found has the key looked up, so its key column is not read.
  lookup_ = prepare(db, std::string("SELECT ") + kFieldColumns + " FROM entries WHERE key = ?1");
  insert_ = prepare(db, "INSERT" + values + " ON CONFLICT (key) DO NOTHING");
  replace_ = prepare(db, "INSERT OR REPLACE" + values);
  remove_ = prepare(db, "DELETE FROM entries WHERE key >= ?1 AND key < ?2");
  setGroup_ = prepare(db, "UPDATE entries SET link_group = ?2 WHERE key = ?1");
  begin_ = prepare(db, "BEGIN");
  commit_ = prepare(db, "COMMIT");
  rollback_ = prepare(db, "ROLLBACK");
  return lookup_ && insert_ && replace_ && remove_ && setGroup_ && begin_ && commit_ && rollback_;
}

VNSqliteStatement VNBomDatabase::prepareRange() const {
  return prepare(db_.get(), std::string("SELECT key, ") + kFieldColumns +
                                " FROM entries WHERE key >= ?1 AND key < ?2 ORDER BY key");
}

bool VNBomDatabase::step(sqlite3_stmt* statement) {
  int rc = sqlite3_step(statement);
  noteWriteResult(rc);
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  return rc == SQLITE_DONE;
}

std::unique_ptr<BomEntry> VNBomDatabase::lookup(std::string_view key) {
  sqlite3_stmt* statement = lookup_.get();
  // The key outlives the step, so SQLite need not copy it.
  sqlite3_bind_blob64(statement, 1, key.empty() ? "" : key.data(), key.size(), SQLITE_STATIC);
  std::unique_ptr<BomEntry> entry;
  if (sqlite3_step(statement) == SQLITE_ROW) {
    entry = entryAt(key);
    if (!readFields(statement, 0, *entry)) entry.reset();
  }
  sqlite3_reset(statement);
  return entry;
}

bool VNBomDatabase::insert(std::string_view key, const BomEntry& entry, bool replace) {
  if (readOnly_ || !VNBomIsKnownType(entry.type)) return false;
  sqlite3_stmt* statement = replace ? replace_.get() : insert_.get();
  VNSqliteBindBytes(statement, 1, key);
  sqlite3_bind_int(statement, 2, entry.type);
  sqlite3_bind_int(statement, 3, entry.mode);
  sqlite3_bind_int(statement, 4, entry.options);
  sqlite3_bind_int64(statement, 5, static_cast<sqlite3_int64>(entry.size));
  sqlite3_bind_int64(statement, 6, entry.checksum);
  sqlite3_bind_int64(statement, 7, entry.uid);
  sqlite3_bind_int64(statement, 8, entry.gid);
  sqlite3_bind_int64(statement, 9, entry.mtime);
  VNSqliteBindBytes(statement, 10, entry.symlinkTarget);
  VNSqliteBindBytes(statement, 11, entry.hardlinkGroup);
  ++generation_;
  return step(statement) && sqlite3_changes(db_.get()) > 0;
}

bool VNBomDatabase::removeSubtree(std::string_view key) {
  if (readOnly_) return false;
  VNSqliteBindBytes(remove_.get(), 1, key);
  VNSqliteBindBytes(remove_.get(), 2, VNBomKeyAfterSubtree(key));
  ++generation_;
  return step(remove_.get());
}

bool VNBomDatabase::setHardlinkGroup(std::string_view key, std::string_view group) {
  if (readOnly_) return false;
  VNSqliteBindBytes(setGroup_.get(), 1, key);
  VNSqliteBindBytes(setGroup_.get(), 2, group);
  ++generation_;
  return step(setGroup_.get());
}

bool VNBomDatabase::begin() { return !readOnly_ && step(begin_.get()); }
bool VNBomDatabase::commitTransaction() { return step(commit_.get()); }
void VNBomDatabase::rollback() { step(rollback_.get()); }

// A write that failed for any reason but the entry itself (a check it broke,
// an over-long value) may have left the file half-written: the store is not
// committed after it.
void VNBomDatabase::noteWriteResult(int rc) {
  if (rc == SQLITE_DONE || (rc & 0xFF) == SQLITE_CONSTRAINT || rc == SQLITE_TOOBIG || failedErrno_)
    return;
  failedErrno_ = sqliteErrno(db_.get());
}

std::unique_ptr<BomEntry> VNBomDatabase::entryFromRow(sqlite3_stmt* statement,
                                                     std::string_view* key) {
  std::string_view rowKey = VNSqliteColumnBytes(statement, 0);
  if (!VNBomIsValidKey(rowKey)) return nullptr;
  std::unique_ptr<BomEntry> entry = entryAt(rowKey);
  if (!readFields(statement, 1, *entry)) return nullptr;
  *key = rowKey;
  return entry;
}

bool VNBomDatabase::syncFile() {
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
      !file || !file->pMethods)
    return false;
  return file->pMethods->xSync(file, SQLITE_SYNC_FULL) == SQLITE_OK;
}

bool VNBomDatabase::commit(const std::string& path, VNError* error) {
  if (failedErrno_) return VNSetError(error, VNError::posix(failedErrno_, path, "write")), false;
  if (!syncFile())
    return VNSetError(error, VNError::posix(errno ? errno : EIO, path, "sync")), false;
  if (!temp_.renameOver(path, error)) return false;
  readOnly_ = committed_ = true;
  // The committed file is for everyone to read: give up the exclusive lock,
  // which goes at the next access after the mode changes.
  sqlite3_exec(db_.get(),
               "PRAGMA query_only = ON; PRAGMA locking_mode = NORMAL; "
               "SELECT count(*) FROM sqlite_schema",
               nullptr, nullptr, nullptr);
  return true;
}
