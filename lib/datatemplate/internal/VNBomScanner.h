#pragma once

#include <cstdint>
#include <memory>
#include <string>

class VNBomDatabase;
class VNError;

// Lists the tree rooted at `rootPath` into a new writable BOM to be committed
// to `bomPath`: the root as the entry ".", then every item below it in walk
// order, never following a symbolic link, leaving out the store's own
// temporary file. `options` selects checksums (each regular file read once)
// and stat fields. Names of one file found several times in the tree share a
// hard-link group. Null, with errno, step and path, when any item cannot be
// read.
std::shared_ptr<VNBomDatabase> VNBomScanTree(const std::string& bomPath, const std::string& rootPath,
                                             uint16_t options, VNError* error);
