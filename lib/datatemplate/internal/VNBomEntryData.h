#pragma once

#include <cstdint>
#include <string>

#include "datatemplate/VNBomStore.h"

// The fields of one BOM entry; the opaque BomEntry of the C interface. The
// path and short name are kept as the caller set them; the store derives its
// key from the path.
struct BomEntry {
  BomEntryType type = 0;
  std::string path;
  std::string shortName;
  uint16_t mode = 0;
  uint16_t options = 0;
  uint64_t size = 0;
  std::string symlinkTarget;
  std::string hardlinkGroup;  // empty when the entry is the only name of its file
  uint32_t checksum = 0;
  uint32_t uid = 0;
  uint32_t gid = 0;
  int64_t mtime = 0;
};

// Whether `type` is a code the store records.
inline bool VNBomIsKnownType(BomEntryType type) {
  return type >= BomEntryTypeFile && type <= BomEntryTypeSocket;
}
