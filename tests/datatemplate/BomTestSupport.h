#pragma once

#include <string>
#include <vector>

#include "datatemplate/VNBomStore.h"
#include "support/VNTestDir.h"

// Path names the walk from `start` (the root when null) returns, in order.
std::vector<std::string> walkPaths(BomStore* store, const char* start = nullptr);

// A new entry of `type` at `path` with `mode`, owned by the caller.
VNBomEntryPtr makeEntry(BomEntryType type, const char* path, uint16_t mode);

// Type code of the entry at `path`, or 0 when there is none.
BomEntryType typeAt(BomStore* store, const char* path);
