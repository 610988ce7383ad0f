#include "datatemplate/internal/VNBomDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "datatemplate/internal/VNBomKey.h"
#include "datatemplate/internal/VNBomSchema.h"
#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"

const char* const VNBomErrorDomain = "org.varnel.BomStore";

namespace {

constexpr const char* kColumns =
    "key, type, mode, options, size, checksum, uid, gid, mtime, link_target, link_group";

// Longest text or blob a BOM's connection handles; far above any valid row.
constexpr int kMaxValueBytes = 1 << 20;

VNError bomError(VNBomErrorCode code, const std::string& path, const std::string& reason) {
  VNValue::Dictionary info;
  info[VNLocalizedDescriptionKey] = VNValue("'" + path + "' " + reason);
  info[VNFilePathErrorKey] = VNValue(path);
  return VNError(VNBomErrorDomain, code, std::move(info));
}

uint32_t bigEndian32(const unsigned char* bytes) {
  return uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 |
         uint32_t(bytes[3]);
}

// Whether the image is as long as its header says: page size times page
// count. We always write both, so a file of another length was cut short or
// padded.
bool hasHeaderLength(const unsigned char* image, uint64_t size) {
  uint32_t pageSize = uint32_t(image[16]) << 8 | image[17];
  if (pageSize == 1) pageSize = 65536;
  bool powerOfTwo = pageSize >= 512 && (pageSize & (pageSize - 1)) == 0;
  return powerOfTwo && uint64_t(pageSize) * bigEndian32(image + 28) == size;
}

// Reads the regular file at `path` into memory SQLite owns. Opening with
// O_NONBLOCK keeps a FIFO from blocking us before fstat shows what it is.
VNSqliteBuffer readBomFile(const std::string& path, uint64_t* size, VNError* error) {
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!fd) return VNSetError(error, VNError::posix(errno, path, "open")), nullptr;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0)
    return VNSetError(error, VNError::posix(errno, path, "stat")), nullptr;
  if (S_ISDIR(st.st_mode)) return VNSetError(error, VNError::posix(EISDIR, path, "read")), nullptr;
  if (!S_ISREG(st.st_mode))
    return VNSetError(error, bomError(VNBomErrorNotABom, path, "is not a regular file")), nullptr;
  if (static_cast<uint64_t>(st.st_size) > kVNBomMaxFileBytes)
    return VNSetError(error, VNError::posix(EFBIG, path, "read")), nullptr;
  uint64_t capacity = static_cast<uint64_t>(st.st_size);
  VNSqliteBuffer buffer(static_cast<unsigned char*>(sqlite3_malloc64(capacity ? capacity : 1)));
  if (!buffer) return VNSetError(error, VNError::posix(ENOMEM, path, "read")), nullptr;
  uint64_t done = 0;
  while (done < capacity) {
    ssize_t n = ::read(fd.get(), buffer.get() + done, capacity - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return VNSetError(error, VNError::posix(errno, path, "read")), nullptr;
    if (n == 0) break;
    done += static_cast<uint64_t>(n);
  }
  *size = done;
  return buffer;
}

// A connection that treats its database as untrusted input.
VNSqliteDb openHardenedConnection() {
  sqlite3* raw = nullptr;
  // One thread uses a store at a time, so the connection needs no mutex.
  int rc = sqlite3_open_v2(":memory:", &raw,
                           SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  VNSqliteDb db(raw);
  if (rc != SQLITE_OK) return nullptr;
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_limit(db.get(), SQLITE_LIMIT_LENGTH, kMaxValueBytes);
  if (sqlite3_exec(db.get(), "PRAGMA cell_size_check = ON", nullptr, nullptr, nullptr) != SQLITE_OK)
    return nullptr;
  return db;
}

VNSqliteStatement prepare(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* raw = nullptr;
  sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
  return VNSqliteStatement(raw);
}

}  // namespace

std::shared_ptr<VNBomDatabase> VNBomDatabase::openFile(const std::string& path, VNError* error) {
  uint64_t size = 0;
  VNSqliteBuffer image = readBomFile(path, &size, error);
  if (!image) return nullptr;
  if (size < 100 || std::memcmp(image.get(), "SQLite format 3", 16) != 0 ||
      bigEndian32(image.get() + 68) != kVNBomApplicationId) {
    VNSetError(error, bomError(VNBomErrorNotABom, path, "is not a bill of materials"));
    return nullptr;
  }
  if (bigEndian32(image.get() + 60) != kVNBomSchemaVersion) {
    VNSetError(error, bomError(VNBomErrorUnsupportedVersion, path,
                               "is a bill of materials of an unsupported layout version"));
    return nullptr;
  }
  VNError damaged = bomError(VNBomErrorDamaged, path, "is a damaged bill of materials");
  if (!hasHeaderLength(image.get(), size)) return VNSetError(error, damaged), nullptr;
  VNSqliteDb db = openHardenedConnection();
  if (!db) return VNSetError(error, VNError::posix(ENOMEM, path, "open")), nullptr;
  // SQLite frees the image on close, and on failure right away.
  int rc = sqlite3_deserialize(db.get(), "main", image.release(), static_cast<sqlite3_int64>(size),
                               static_cast<sqlite3_int64>(size),
                               SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_READONLY);
  std::shared_ptr<VNBomDatabase> bom(new VNBomDatabase(std::move(db), /*readOnly=*/true));
  if (rc != SQLITE_OK || !VNBomHasOurSchema(bom->handle()) || !VNBomRowsAreSound(bom->handle()) ||
      !bom->prepareStatements()) {
    VNSetError(error, damaged);
    return nullptr;
  }
  return bom;
}

std::shared_ptr<VNBomDatabase> VNBomDatabase::createEmpty(VNError* error) {
  VNSqliteDb db = openHardenedConnection();
  std::shared_ptr<VNBomDatabase> bom(db ? new VNBomDatabase(std::move(db), /*readOnly=*/false)
                                        : nullptr);
  if (!bom || !VNBomInstallSchema(bom->handle()) || !bom->prepareStatements()) {
    VNSetError(error, VNError::posix(ENOMEM, {}, "create bill of materials"));
    return nullptr;
  }
  return bom;
}

std::shared_ptr<VNBomDatabase> VNBomDatabase::copyOf(VNBomDatabase& source, VNError* error) {
  uint64_t size = 0;
  VNSqliteBuffer image = source.serialize(&size, error);
  if (!image) return nullptr;
  VNSqliteDb db = openHardenedConnection();
  if (!db) return VNSetError(error, VNError::posix(ENOMEM, {}, "copy bill of materials")), nullptr;
  int rc = sqlite3_deserialize(db.get(), "main", image.release(), static_cast<sqlite3_int64>(size),
                               static_cast<sqlite3_int64>(size),
                               SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
  std::shared_ptr<VNBomDatabase> bom(new VNBomDatabase(std::move(db), /*readOnly=*/false));
  if (rc != SQLITE_OK || !bom->prepareStatements()) {
    VNSetError(error, VNError::posix(ENOMEM, {}, "copy bill of materials"));
    return nullptr;
  }
  return bom;
}

bool VNBomDatabase::prepareStatements() {
  sqlite3* db = db_.get();
  std::string select = std::string("SELECT ") + kColumns + " FROM entries ";
  std::string values = std::string(" INTO entries (") + kColumns +
                       ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)";
  lookup_ = prepare(db, select + "WHERE key = ?1");
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
  return prepare(db_.get(), std::string("SELECT ") + kColumns +
                                " FROM entries WHERE key >= ?1 AND key < ?2 ORDER BY key");
}

bool VNBomDatabase::step(sqlite3_stmt* statement) {
  int rc = sqlite3_step(statement);
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  return rc == SQLITE_DONE;
}

std::unique_ptr<BomEntry> VNBomDatabase::lookup(std::string_view key) {
  sqlite3_stmt* statement = lookup_.get();
  // The key outlives the step, so SQLite need not copy it.
  sqlite3_bind_blob64(statement, 1, key.empty() ? "" : key.data(), key.size(), SQLITE_STATIC);
  std::unique_ptr<BomEntry> entry;
  if (sqlite3_step(statement) == SQLITE_ROW) entry = entryFromRow(statement, nullptr);
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

std::unique_ptr<BomEntry> VNBomDatabase::entryFromRow(sqlite3_stmt* statement, std::string* key) {
  auto entry = std::make_unique<BomEntry>();
  std::string_view rowKey = VNSqliteColumnBytes(statement, 0);
  entry->path = VNBomPathForKey(rowKey);
  entry->shortName = VNBomShortNameForKey(rowKey);
  entry->type = sqlite3_column_int(statement, 1);
  entry->mode = static_cast<uint16_t>(sqlite3_column_int(statement, 2));
  entry->options = static_cast<uint16_t>(sqlite3_column_int(statement, 3));
  entry->size = static_cast<uint64_t>(sqlite3_column_int64(statement, 4));
  entry->checksum = static_cast<uint32_t>(sqlite3_column_int64(statement, 5));
  entry->uid = static_cast<uint32_t>(sqlite3_column_int64(statement, 6));
  entry->gid = static_cast<uint32_t>(sqlite3_column_int64(statement, 7));
  entry->mtime = sqlite3_column_int64(statement, 8);
  entry->symlinkTarget = VNSqliteColumnBytes(statement, 9);
  entry->hardlinkGroup = VNSqliteColumnBytes(statement, 10);
  if (key) key->assign(rowKey);
  return entry;
}

VNSqliteBuffer VNBomDatabase::serialize(uint64_t* size, VNError* error) const {
  sqlite3_int64 bytes = 0;
  VNSqliteBuffer image(sqlite3_serialize(db_.get(), "main", &bytes, 0));
  if (!image) {
    VNSetError(error, VNError::posix(ENOMEM, {}, "serialize bill of materials"));
    return nullptr;
  }
  *size = static_cast<uint64_t>(bytes);
  return image;
}
