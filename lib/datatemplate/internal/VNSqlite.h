#pragma once

#include <sqlite3.h>

#include <memory>
#include <string_view>

// Owners of SQLite handles. A connection closes after its statements are
// finalized, so holders destroy statements first.
struct VNSqliteCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct VNSqliteFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using VNSqliteDb = std::unique_ptr<sqlite3, VNSqliteCloser>;
using VNSqliteStatement = std::unique_ptr<sqlite3_stmt, VNSqliteFinalizer>;

// Binds `bytes` as a BLOB, empty ones included (a null pointer would bind
// NULL). SQLite copies the bytes.
inline int VNSqliteBindBytes(sqlite3_stmt* statement, int index, std::string_view bytes) {
  return sqlite3_bind_blob64(statement, index, bytes.empty() ? "" : bytes.data(), bytes.size(),
                             SQLITE_TRANSIENT);
}

// Column `index` as bytes; empty for NULL.
inline std::string_view VNSqliteColumnBytes(sqlite3_stmt* statement, int index) {
  const void* data = sqlite3_column_blob(statement, index);
  int size = sqlite3_column_bytes(statement, index);
  if (!data || size <= 0) return {};
  return {static_cast<const char*>(data), static_cast<size_t>(size)};
}
