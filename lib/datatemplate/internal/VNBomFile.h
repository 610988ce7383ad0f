#pragma once

#include <sys/types.h>

#include <string>

#include "datatemplate/VNBomStore.h"

class VNError;

// Largest BOM file bom_open accepts.
inline constexpr uint64_t kVNBomMaxFileBytes = 1ull << 30;

// An error of VNBomErrorDomain about the file at `path`: "'path' reason".
VNError VNBomFileError(VNBomErrorCode code, const std::string& path, const std::string& reason);

// Checks the file at `path` before SQLite reads it: a regular file (a FIFO
// must not block us) of at most kVNBomMaxFileBytes whose SQLite header
// carries our marks and layout version, asks for no write-ahead log, and
// gives the file's length as page size times page count.
bool VNBomCheckFileHeader(const std::string& path, VNError* error);

// The file a writable store lives in until it is committed: a new file
// "<path>.XXXXXX" beside the BOM's path, so that committing is a rename
// within one folder. Removed on destruction unless it was renamed into place.
class VNBomTempFile {
 public:
  VNBomTempFile() = default;
  VNBomTempFile(VNBomTempFile&& other) noexcept;
  VNBomTempFile& operator=(VNBomTempFile&&) = delete;
  ~VNBomTempFile();

  // Creates the empty file, readable by all and writable by its owner (the
  // mode of a committed BOM), beside `bomPath`.
  bool create(const std::string& bomPath, VNError* error);
  // Renames the file over `bomPath` and syncs the folder; from then on the
  // file belongs to `bomPath` and is not removed. The caller has synced the
  // file's contents.
  bool renameOver(const std::string& bomPath, VNError* error);

  const std::string& path() const { return path_; }
  // Whether `device` and `inode` name this file.
  bool is(dev_t device, ino_t inode) const {
    return !path_.empty() && device == device_ && inode == inode_;
  }

 private:
  std::string path_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};
