#pragma once

// The bill-of-materials (BOM) store: a record of a directory tree, one entry
// per item (type, path, mode, size, symbolic-link target, hard-link group,
// and on request owner, group, modification time and a CRC-32 of each regular
// file). A BOM file is an SQLite database of our own layout
// (docs/bom-format.md); any other file is refused.
//
// Handles are opaque. A store, and the entries and enumerators taken from it,
// are used by one thread at a time; different stores are independent.
// Paths are NUL-terminated byte strings as the file system has them.

#include <stdbool.h>
#include <stdint.h>

#include "foundation/VNExport.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct BomStore BomStore;
typedef struct BomEntry BomEntry;
typedef struct BomEnumerator BomEnumerator;

// Type codes of an entry. Codes beyond 3 are neither directory nor symbolic
// link for every consumer.
typedef int32_t BomEntryType;
enum {
  BomEntryTypeFile = 1,
  BomEntryTypeDirectory = 2,
  BomEntryTypeSymlink = 3,
  BomEntryTypeCharDevice = 4,
  BomEntryTypeBlockDevice = 5,
  BomEntryTypeFIFO = 6,
  BomEntryTypeSocket = 7,
};

// Bits of an entry's 16-bit option word: which optional fields it carries.
// BomOptionStat: owner, group and modification time.
// BomOptionChecksums: the CRC-32 of a regular file's contents.
enum {
  BomOptionStat = 0x0001,
  BomOptionChecksums = 0x0002,
};

// The third argument of bom_insert_entry: replace an entry already stored at
// the same path (1), or leave it and insert nothing (0).
enum { BomInsertKeepExisting = 0, BomInsertReplaceExisting = 1 };

// Longest hard-link group path, without its terminating NUL; the buffer of
// bom_entry_hardlink_path holds BomHardlinkPathBufferSize bytes.
enum { BomHardlinkPathBufferSize = 1024 };

// ---- Store -----------------------------------------------------------------

// Opens the BOM file at `path` read-only. The file is read through SQLite's
// page cache, whose size is fixed whatever the BOM's, never written, and no
// side files are created; the store keeps it open and share-locked until
// bom_free. Null when the file is missing, unreadable, not a BOM of ours, of
// another layout version, or damaged. Should the file be rewritten in place
// while open anyway, lookups find nothing and walks end where they meet it.
// A file renamed over `path` meanwhile does not affect the store.
VN_EXPORT BomStore* bom_open(const char* path);

// A new store for the BOM file `bomPath`, listing the tree rooted at
// `rootPath` (the root itself is the entry "."). Symbolic links are recorded,
// never followed. `options` is an OR of BomOption bits: with
// BomOptionChecksums each regular file is read once for its CRC-32 (the
// routine of bom_crc32_for_file); with BomOptionStat owner, group and
// modification time are recorded. Every name of a file with several names in
// the tree carries the same hard-link group. Nothing is written to `bomPath`
// before bom_commit: a created store lives in a temporary file beside
// `bomPath` (same folder, name `bomPath` plus a dot and six characters),
// which the walk of the tree leaves out. Null when the tree cannot be read
// completely or the folder of `bomPath` cannot take the temporary file.
VN_EXPORT BomStore* bom_new_from_directory(const char* bomPath, const char* rootPath,
                                           uint16_t options);

// A new store for the BOM file `bomPath` whose entries are copies of those
// of `source`, which stays open and unchanged. Like a store of
// bom_new_from_directory, it lives in a temporary file beside `bomPath`. Null
// on failure.
VN_EXPORT BomStore* bom_new_from_bom(const char* bomPath, BomStore* source);

// Writes a created store to its BOM file as a whole: its temporary file is
// synced and renamed over the BOM file, so a reader sees either the earlier
// file or the complete new one, and a failed commit leaves any earlier file
// intact. The mode of the file is 0644. Afterwards the store reads the
// committed file and is read-only, as if opened with bom_open. 0 on success;
// non-zero for a null handle, a read-only store, a store any of whose edits
// failed to be written, or a failed sync or rename.
VN_EXPORT int bom_commit(BomStore* store);

// Releases a store; null is accepted. Enumerators of the store stay usable
// until they are released themselves. The temporary file of a store never
// committed is removed when the last of them goes.
VN_EXPORT void bom_free(BomStore* store);

// The root entry (path "."), as an owned copy; null when the store has none.
VN_EXPORT BomEntry* bom_root_entry(BomStore* store);

// The entry stored at `path`, as an owned copy, or null. A leading run of
// "/" and "./", a lone ".", repeated and trailing slashes are ignored, so
// "./a/b", "/a//b/" and "a/b" name one entry and "", "." and "./" the root.
VN_EXPORT BomEntry* bom_entry_at_path(BomStore* store, const char* path);

// Removes the entry stored at `entry`'s path together with every entry below
// that path. Does nothing for a store opened with bom_open.
VN_EXPORT void bom_remove_entry(BomStore* store, const BomEntry* entry);

// Stores a copy of `entry` at its path; the caller keeps and later releases
// `entry`. `replace` is BomInsertReplaceExisting or BomInsertKeepExisting.
// Entries below the path are left as they are. Nothing is inserted when the
// path is invalid (a ".." component, an over-long path), the type code is
// unknown, or the store was opened with bom_open.
VN_EXPORT void bom_insert_entry(BomStore* store, const BomEntry* entry, int replace);

// A depth-first, pre-order walk over the entries below `start`'s path; the
// start entry itself is not returned. Null for a null store or start entry.
VN_EXPORT BomEnumerator* bom_enumerator_new(BomStore* store, const BomEntry* start);

// The next entry of the walk as an owned copy, or null at the end. A
// directory comes before everything below it. The store may be edited
// between calls: the walk continues after the path it returned last, and
// neither repeats nor loses an entry that the edit did not touch.
VN_EXPORT BomEntry* bom_enumerator_next(BomEnumerator* enumerator);

// Keeps the walk out of everything below the entry returned last, when that
// entry is a directory; does nothing otherwise.
VN_EXPORT void bom_enumerator_skip(BomEnumerator* enumerator);

// Releases an enumerator; null is accepted.
VN_EXPORT void bom_enumerator_free(BomEnumerator* enumerator);

// Computes the CRC-32 (zlib's, as recorded by bom_new_from_directory) and
// byte length of the regular file at `path`. 0 on success; non-zero when the
// file cannot be opened or read or is not a regular file, leaving the
// outputs untouched.
VN_EXPORT int bom_crc32_for_file(const char* path, uint32_t* checksum, uint64_t* length);

// ---- Entry -----------------------------------------------------------------

// A new entry of type `type` with every other field empty or zero; the
// caller releases it with bom_entry_free.
VN_EXPORT BomEntry* bom_entry_new(BomEntryType type);
// Releases an entry; null is accepted.
VN_EXPORT void bom_entry_free(BomEntry* entry);

VN_EXPORT BomEntryType bom_entry_type(const BomEntry* entry);
// Path relative to the BOM's root, without a leading "./"; "." for the root.
// Valid while the entry lives.
VN_EXPORT const char* bom_entry_path_name(const BomEntry* entry);
// Last component of the path name; "." for the root. Valid while the entry
// lives.
VN_EXPORT const char* bom_entry_short_name(const BomEntry* entry);
// Byte length of a regular file's contents.
VN_EXPORT uint64_t bom_entry_size(const BomEntry* entry);
// 16-bit mode, file-type bits included.
VN_EXPORT uint16_t bom_entry_mode(const BomEntry* entry);
// Option word: which optional fields the entry carries.
VN_EXPORT uint16_t bom_entry_flags(const BomEntry* entry);
// Target of a symbolic link; "" for other entries. Valid while the entry
// lives.
VN_EXPORT const char* bom_entry_symlink_target(const BomEntry* entry);
// Recorded CRC-32; 0 when the entry carries no checksum.
VN_EXPORT uint32_t bom_entry_checksum(const BomEntry* entry);
// Owner, group and modification time (seconds since 1970); 0 when the entry
// carries no stat fields.
VN_EXPORT uint32_t bom_entry_uid(const BomEntry* entry);
VN_EXPORT uint32_t bom_entry_gid(const BomEntry* entry);
VN_EXPORT int64_t bom_entry_mtime(const BomEntry* entry);

// Writes the entry's hard-link group path, NUL-terminated, into `buffer`
// (BomHardlinkPathBufferSize bytes) and returns true when the entry is one
// of several names of one file; false, leaving `buffer` untouched, otherwise
// and when `store` is null or `flags` is not 0. Every name of the file
// reports the same group path: the path of its first name in walk order.
VN_EXPORT bool bom_entry_hardlink_path(BomStore* store, const BomEntry* entry, int flags,
                                       char* buffer);

VN_EXPORT void bom_entry_set_flags(BomEntry* entry, uint16_t options);
VN_EXPORT void bom_entry_set_mode(BomEntry* entry, uint16_t mode);
// Copies `path` and sets the short name to its last component.
VN_EXPORT void bom_entry_set_path_name(BomEntry* entry, const char* path);
// Copies `name`. The store keeps the last component of the path as the
// short name of what it stores.
VN_EXPORT void bom_entry_set_short_name(BomEntry* entry, const char* name);
VN_EXPORT void bom_entry_set_symlink_target(BomEntry* entry, const char* target);

#ifdef __cplusplus
}  // extern "C"

#include <memory>

class VNError;

// Owners of the handles for C++ callers.
struct VNBomStoreFree {
  void operator()(BomStore* store) const { bom_free(store); }
};
struct VNBomEntryFree {
  void operator()(BomEntry* entry) const { bom_entry_free(entry); }
};
struct VNBomEnumeratorFree {
  void operator()(BomEnumerator* walk) const { bom_enumerator_free(walk); }
};
using VNBomStorePtr = std::unique_ptr<BomStore, VNBomStoreFree>;
using VNBomEntryPtr = std::unique_ptr<BomEntry, VNBomEntryFree>;
using VNBomEnumeratorPtr = std::unique_ptr<BomEnumerator, VNBomEnumeratorFree>;

// The operations above that can fail, with the reason of a failure: errno,
// step and path for file-system failures, VNBomErrorDomain for a file that is
// not a BOM of ours or is damaged.
VN_EXPORT BomStore* VNBomOpen(const char* path, VNError* error);
VN_EXPORT BomStore* VNBomNewFromDirectory(const char* bomPath, const char* rootPath,
                                          uint16_t options, VNError* error);
VN_EXPORT BomStore* VNBomNewFromBom(const char* bomPath, BomStore* source, VNError* error);
VN_EXPORT bool VNBomCommit(BomStore* store, VNError* error);

// Domain of errors about a BOM file's contents, and its codes.
VN_EXTERN_C VN_EXPORT const char* const VNBomErrorDomain;
enum VNBomErrorCode {
  VNBomErrorNotABom = 1,            // not an SQLite database, or not one of ours
  VNBomErrorUnsupportedVersion = 2,  // ours, of another layout version
  VNBomErrorDamaged = 3,            // ours, but fails its integrity check
  VNBomErrorReadOnly = 4,           // commit of a store opened with bom_open or committed
};
#endif
