// The entry operations of the BOM interface.
#include <cstring>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/internal/VNBomEntryData.h"
#include "datatemplate/internal/VNBomKey.h"

namespace {

// The short name the store would give `path`; for a path it refuses, the
// text after the last slash.
std::string lastComponent(const std::string& path) {
  if (std::optional<std::string> key = VNBomKeyForPath(path)) return VNBomShortNameForKey(*key);
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

BomEntry* bom_entry_new(BomEntryType type) {
  auto* entry = new BomEntry;
  entry->type = type;
  return entry;
}

void bom_entry_free(BomEntry* entry) { delete entry; }

BomEntryType bom_entry_type(const BomEntry* entry) { return entry ? entry->type : 0; }
const char* bom_entry_path_name(const BomEntry* entry) { return entry ? entry->path.c_str() : ""; }
const char* bom_entry_short_name(const BomEntry* entry) {
  return entry ? entry->shortName.c_str() : "";
}
uint64_t bom_entry_size(const BomEntry* entry) { return entry ? entry->size : 0; }
uint16_t bom_entry_mode(const BomEntry* entry) { return entry ? entry->mode : 0; }
uint16_t bom_entry_flags(const BomEntry* entry) { return entry ? entry->options : 0; }
const char* bom_entry_symlink_target(const BomEntry* entry) {
  return entry ? entry->symlinkTarget.c_str() : "";
}
uint32_t bom_entry_checksum(const BomEntry* entry) {
  return entry && (entry->options & BomOptionChecksums) ? entry->checksum : 0;
}
uint32_t bom_entry_uid(const BomEntry* entry) {
  return entry && (entry->options & BomOptionStat) ? entry->uid : 0;
}
uint32_t bom_entry_gid(const BomEntry* entry) {
  return entry && (entry->options & BomOptionStat) ? entry->gid : 0;
}
int64_t bom_entry_mtime(const BomEntry* entry) {
  return entry && (entry->options & BomOptionStat) ? entry->mtime : 0;
}

bool bom_entry_hardlink_path(BomStore* store, const BomEntry* entry, int flags, char* buffer) {
  if (!store || !entry || !buffer || flags != 0 || entry->hardlinkGroup.empty() ||
      entry->hardlinkGroup.size() >= BomHardlinkPathBufferSize)
    return false;
  std::memcpy(buffer, entry->hardlinkGroup.c_str(), entry->hardlinkGroup.size() + 1);
  return true;
}

void bom_entry_set_flags(BomEntry* entry, uint16_t options) {
  if (entry) entry->options = options;
}
void bom_entry_set_mode(BomEntry* entry, uint16_t mode) {
  if (entry) entry->mode = mode;
}
void bom_entry_set_path_name(BomEntry* entry, const char* path) {
  if (!entry || !path) return;
  entry->path = path;
  entry->shortName = lastComponent(entry->path);
}
void bom_entry_set_short_name(BomEntry* entry, const char* name) {
  if (entry && name) entry->shortName = name;
}
void bom_entry_set_symlink_target(BomEntry* entry, const char* target) {
  if (entry && target) entry->symlinkTarget = target;
}
