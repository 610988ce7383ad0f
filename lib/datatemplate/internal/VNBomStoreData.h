#pragma once

#include <memory>
#include <string>

#include "datatemplate/internal/VNBomDatabase.h"

// The opaque BomStore of the C interface: a database and the file it was
// opened from or is to be committed to. Enumerators share the database, so
// it lives until the last of them is released.
struct BomStore {
  std::shared_ptr<VNBomDatabase> db;
  std::string path;
};
