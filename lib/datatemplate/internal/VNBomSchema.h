#pragma once

#include <sqlite3.h>

// The tables of a BOM file, layout version kVNBomSchemaVersion
// (docs/bom-format.md describes them).

// Longest symbolic-link target and hard-link group a row holds.
inline constexpr int kVNBomMaxLinkTargetBytes = 4096;
inline constexpr int kVNBomMaxLinkGroupBytes = 1023;

// Creates the tables and header marks in an empty database; false on
// failure.
bool VNBomInstallSchema(sqlite3* db);

// Whether the database's schema is exactly the one VNBomInstallSchema makes:
// the same tables and indexes with the same definitions, nothing more. A
// file with other definitions (no constraints, triggers, views) is refused
// before any of its rows are read.
bool VNBomHasOurSchema(sqlite3* db);

// Reads every row once in stored order and checks what the table's
// constraints promise (keys well formed and strictly ascending, values in
// range and of their column's type). A file can break these without SQLite
// noticing: bit flips inside a row or a key moved out of order. False on the
// first bad row and when SQLite reports the file damaged.
bool VNBomRowsAreSound(sqlite3* db);
