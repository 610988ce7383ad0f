#include "datatemplate/internal/VNBomSchema.h"

#include <string>
#include <vector>

#include "datatemplate/internal/VNBomDatabase.h"
#include "datatemplate/internal/VNBomKey.h"
#include "datatemplate/internal/VNSqlite.h"

namespace {

// Keys are a NUL byte before every path component (see VNBomKey.h); the
// checks keep a walk's order sound whatever a file holds: no slash, no empty,
// "." or ".." component, at most 16384 bytes.
constexpr const char* kCreateEntries = R"(CREATE TABLE entries (
  key BLOB NOT NULL PRIMARY KEY CHECK (length(key) <= 16384
    AND (length(key) = 0 OR (substr(key, 1, 1) = x'00' AND substr(key, -1, 1) <> x'00'))
    AND instr(key, x'2F') = 0 AND instr(key, x'0000') = 0
    AND instr(key, x'002E00') = 0 AND instr(key, x'002E2E00') = 0
    AND substr(key, -2, 2) <> x'002E' AND substr(key, -3, 3) <> x'002E2E'),
  type INTEGER NOT NULL CHECK (type BETWEEN 1 AND 7),
  mode INTEGER NOT NULL CHECK (mode BETWEEN 0 AND 65535),
  options INTEGER NOT NULL CHECK (options BETWEEN 0 AND 65535),
  size INTEGER NOT NULL,
  checksum INTEGER NOT NULL CHECK (checksum BETWEEN 0 AND 4294967295),
  uid INTEGER NOT NULL CHECK (uid BETWEEN 0 AND 4294967295),
  gid INTEGER NOT NULL CHECK (gid BETWEEN 0 AND 4294967295),
  mtime INTEGER NOT NULL,
  link_target BLOB NOT NULL CHECK (length(link_target) <= 4096),
  link_group BLOB NOT NULL CHECK (length(link_group) <= 1023)
) STRICT, WITHOUT ROWID)";

struct SchemaRow {
  std::string type, name, table, sql;
  bool operator==(const SchemaRow&) const = default;
};

std::vector<SchemaRow> readSchema(sqlite3* db, bool* ok) {
  std::vector<SchemaRow> rows;
  sqlite3_stmt* raw = nullptr;
  *ok = sqlite3_prepare_v2(db,
                           "SELECT type, name, tbl_name, coalesce(sql, '') FROM sqlite_schema "
                           "ORDER BY name",
                           -1, &raw, nullptr) == SQLITE_OK;
  VNSqliteStatement statement(raw);
  if (!*ok) return rows;
  int rc;
  while ((rc = sqlite3_step(statement.get())) == SQLITE_ROW) {
    auto text = [&](int i) { return std::string(VNSqliteColumnBytes(statement.get(), i)); };
    rows.push_back({text(0), text(1), text(2), text(3)});
  }
  *ok = rc == SQLITE_DONE;
  return rows;
}

const std::vector<SchemaRow>& expectedSchema() {
  static const std::vector<SchemaRow> rows = [] {
    sqlite3* raw = nullptr;
    sqlite3_open_v2(":memory:", &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    VNSqliteDb db(raw);
    bool ok = db && VNBomInstallSchema(db.get());
    std::vector<SchemaRow> schema = ok ? readSchema(db.get(), &ok) : std::vector<SchemaRow>{};
    return ok ? schema : std::vector<SchemaRow>{};
  }();
  return rows;
}

}  // namespace

bool VNBomInstallSchema(sqlite3* db) {
  std::string sql = std::string(kCreateEntries) + ";" +
                    "PRAGMA application_id = " + std::to_string(kVNBomApplicationId) + ";" +
                    "PRAGMA user_version = " + std::to_string(kVNBomSchemaVersion) + ";";
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool VNBomHasOurSchema(sqlite3* db) {
  bool ok = false;
  std::vector<SchemaRow> rows = readSchema(db, &ok);
  return ok && !expectedSchema().empty() && rows == expectedSchema();
}

namespace {

bool isInteger(sqlite3_stmt* row, int column, sqlite3_int64 low, sqlite3_int64 high) {
  if (sqlite3_column_type(row, column) != SQLITE_INTEGER) return false;
  sqlite3_int64 value = sqlite3_column_int64(row, column);
  return value >= low && value <= high;
}

bool isBlob(sqlite3_stmt* row, int column, int maxBytes) {
  return sqlite3_column_type(row, column) == SQLITE_BLOB &&
         sqlite3_column_bytes(row, column) <= maxBytes;
}

// Whether the current row keeps what the table's constraints promise: a
// well-formed key, values in range and of their column's type.
bool rowIsSound(sqlite3_stmt* r) {
  constexpr sqlite3_int64 kMax32 = 0xFFFFFFFF;
  return sqlite3_column_type(r, 0) == SQLITE_BLOB &&
         VNBomIsValidKey(VNSqliteColumnBytes(r, 0)) &&
         isInteger(r, 1, BomEntryTypeFile, BomEntryTypeSocket) && isInteger(r, 2, 0, 0xFFFF) &&
         isInteger(r, 3, 0, 0xFFFF) && sqlite3_column_type(r, 4) == SQLITE_INTEGER &&
         isInteger(r, 5, 0, kMax32) && isInteger(r, 6, 0, kMax32) && isInteger(r, 7, 0, kMax32) &&
         sqlite3_column_type(r, 8) == SQLITE_INTEGER && isBlob(r, 9, kVNBomMaxLinkTargetBytes) &&
         isBlob(r, 10, kVNBomMaxLinkGroupBytes);
}

}  // namespace

bool VNBomRowsAreSound(sqlite3* db) {
  sqlite3_stmt* raw = nullptr;
  if (sqlite3_prepare_v2(db,
                         "SELECT key, type, mode, options, size, checksum, uid, gid, mtime, "
                         "link_target, link_group FROM entries",
                         -1, &raw, nullptr) != SQLITE_OK)
    return false;
  VNSqliteStatement row(raw);
  std::string previous;
  bool first = true;
  int rc;
  while ((rc = sqlite3_step(row.get())) == SQLITE_ROW) {
    if (!rowIsSound(row.get())) return false;
    std::string_view key = VNSqliteColumnBytes(row.get(), 0);
    if (!first && key <= previous) return false;
    previous.assign(key);
    first = false;
  }
  return rc == SQLITE_DONE;
}
