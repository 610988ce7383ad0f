// The store operations of the BOM interface.
#include "datatemplate/VNBomStore.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "datatemplate/internal/VNBomChecksum.h"
#include "datatemplate/internal/VNBomKey.h"
#include "datatemplate/internal/VNBomScanner.h"
#include "datatemplate/internal/VNBomStoreData.h"
#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"

namespace {

BomStore* makeStore(std::shared_ptr<VNBomDatabase> db, const char* path) {
  return db ? new BomStore{std::move(db), path} : nullptr;
}

}  // namespace

BomStore* VNBomOpen(const char* path, VNError* error) {
  if (!path) return VNSetError(error, VNError::posix(EINVAL, {}, "open")), nullptr;
  return makeStore(VNBomDatabase::openFile(path, error), path);
}

BomStore* VNBomNewFromDirectory(const char* bomPath, const char* rootPath, uint16_t options,
                                VNError* error) {
  if (!bomPath || !rootPath) return VNSetError(error, VNError::posix(EINVAL, {}, "scan")), nullptr;
  return makeStore(VNBomScanTree(bomPath, rootPath, options, error), bomPath);
}

BomStore* VNBomNewFromBom(const char* bomPath, BomStore* source, VNError* error) {
  if (!bomPath || !source) return VNSetError(error, VNError::posix(EINVAL, {}, "copy")), nullptr;
  return makeStore(VNBomDatabase::copyFor(bomPath, *source->db, error), bomPath);
}

bool VNBomCommit(BomStore* store, VNError* error) {
  if (!store) return VNSetError(error, VNError::posix(EINVAL, {}, "commit")), false;
  if (store->db->readOnly()) {
    const char* reason = store->db->committed() ? "was committed already" : "was opened read-only";
    VNSetError(error, VNBomFileError(VNBomErrorReadOnly, store->path, reason));
    return false;
  }
  return store->db->commit(store->path, error);
}

BomStore* bom_open(const char* path) { return VNBomOpen(path, nullptr); }

BomStore* bom_new_from_directory(const char* bomPath, const char* rootPath, uint16_t options) {
  return VNBomNewFromDirectory(bomPath, rootPath, options, nullptr);
}

BomStore* bom_new_from_bom(const char* bomPath, BomStore* source) {
  return VNBomNewFromBom(bomPath, source, nullptr);
}

int bom_commit(BomStore* store) { return VNBomCommit(store, nullptr) ? 0 : 1; }

void bom_free(BomStore* store) { delete store; }

BomEntry* bom_root_entry(BomStore* store) {
  return store ? store->db->lookup({}).release() : nullptr;
}

BomEntry* bom_entry_at_path(BomStore* store, const char* path) {
  if (!store || !path) return nullptr;
  std::optional<std::string> key = VNBomKeyForPath(path);
  return key ? store->db->lookup(*key).release() : nullptr;
}

void bom_remove_entry(BomStore* store, const BomEntry* entry) {
  if (!store || !entry) return;
  if (std::optional<std::string> key = VNBomKeyForPath(entry->path))
    store->db->removeSubtree(*key);
}

void bom_insert_entry(BomStore* store, const BomEntry* entry, int replace) {
  if (!store || !entry) return;
  if (std::optional<std::string> key = VNBomKeyForPath(entry->path))
    store->db->insert(*key, *entry, replace == BomInsertReplaceExisting);
}

int bom_crc32_for_file(const char* path, uint32_t* checksum, uint64_t* length) {
  if (!path || !checksum || !length) return EINVAL;
  VNUniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!fd) return errno;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) return errno;
  if (!S_ISREG(st.st_mode)) return S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
  std::vector<unsigned char> buffer(kVNBomChecksumBufferBytes);
  return VNBomChecksumFd(fd.get(), buffer, checksum, length);
}
