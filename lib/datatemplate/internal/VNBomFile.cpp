#include "datatemplate/internal/VNBomFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "datatemplate/internal/VNBomDatabase.h"
#include "foundation/VNError.h"
#include "foundation/VNFileIO.h"
#include "foundation/VNUniqueFd.h"

namespace {

// The part of an SQLite header the checks read.
constexpr size_t kHeaderBytes = 100;

uint32_t bigEndian32(const unsigned char* bytes) {
  return uint32_t(bytes[0]) << 24 | uint32_t(bytes[1]) << 16 | uint32_t(bytes[2]) << 8 |
         uint32_t(bytes[3]);
}

// Whether the file is as long as its header says: page size times page
// count. We always write both, so a file of another length was cut short or
// padded.
bool hasHeaderLength(const unsigned char* header, uint64_t size) {
  uint32_t pageSize = uint32_t(header[16]) << 8 | header[17];
  if (pageSize == 1) pageSize = 65536;
  bool powerOfTwo = pageSize >= 512 && (pageSize & (pageSize - 1)) == 0;
  return powerOfTwo && uint64_t(pageSize) * bigEndian32(header + 28) == size;
}

// A rollback-journal file: format versions 1. A write-ahead-log file (2)
// would make SQLite look for side files.
bool usesRollbackJournal(const unsigned char* header) { return header[18] == 1 && header[19] == 1; }

bool fail(VNError* error, VNError failure) {
  VNSetError(error, std::move(failure));
  return false;
}

}  // namespace

VNError VNBomFileError(VNBomErrorCode code, const std::string& path, const std::string& reason) {
  VNValue::Dictionary info;
  info[VNLocalizedDescriptionKey] = VNValue("'" + path + "' " + reason);
  info[VNFilePathErrorKey] = VNValue(path);
  return VNError(VNBomErrorDomain, code, std::move(info));
}

bool VNBomCheckFileHeader(const std::string& path, VNError* error) {
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!fd) return fail(error, VNError::posix(errno, path, "open"));
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) return fail(error, VNError::posix(errno, path, "stat"));
  if (S_ISDIR(st.st_mode)) return fail(error, VNError::posix(EISDIR, path, "read"));
  if (!S_ISREG(st.st_mode))
    return fail(error, VNBomFileError(VNBomErrorNotABom, path, "is not a regular file"));
  if (static_cast<uint64_t>(st.st_size) > kVNBomMaxFileBytes)
    return fail(error, VNError::posix(EFBIG, path, "read"));
  unsigned char header[kHeaderBytes];
  ssize_t n;
  while ((n = ::pread(fd.get(), header, sizeof header, 0)) < 0 && errno == EINTR) {
  }
  if (n < 0) return fail(error, VNError::posix(errno, path, "read"));
  if (n < static_cast<ssize_t>(kHeaderBytes) || std::memcmp(header, "SQLite format 3", 16) != 0 ||
      bigEndian32(header + 68) != kVNBomApplicationId)
    return fail(error, VNBomFileError(VNBomErrorNotABom, path, "is not a bill of materials"));
  if (bigEndian32(header + 60) != kVNBomSchemaVersion)
    return fail(error, VNBomFileError(VNBomErrorUnsupportedVersion, path,
                                      "is a bill of materials of an unsupported layout version"));
  if (!hasHeaderLength(header, static_cast<uint64_t>(st.st_size)) || !usesRollbackJournal(header))
    return fail(error, VNBomFileError(VNBomErrorDamaged, path, "is a damaged bill of materials"));
  return true;
}

VNBomTempFile::VNBomTempFile(VNBomTempFile&& other) noexcept
    : path_(std::exchange(other.path_, {})), device_(other.device_), inode_(other.inode_) {}

VNBomTempFile::~VNBomTempFile() {
  if (!path_.empty()) ::unlink(path_.c_str());
}

bool VNBomTempFile::create(const std::string& bomPath, VNError* error) {
  VNUniqueFd fd(VNCreateFileBeside(bomPath, 0644, &path_, error));
  if (!fd) return false;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) return fail(error, VNError::posix(errno, bomPath, "stat"));
  device_ = st.st_dev;
  inode_ = st.st_ino;
  return true;
}

bool VNBomTempFile::renameOver(const std::string& bomPath, VNError* error) {
  if (!VNRenameIntoPlace(path_, bomPath, error)) return false;
  path_.clear();
  return true;
}
