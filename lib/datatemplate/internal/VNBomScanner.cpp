#include "datatemplate/internal/VNBomScanner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

#include "datatemplate/internal/VNBomChecksum.h"
#include "datatemplate/internal/VNBomDatabase.h"
#include "datatemplate/internal/VNBomKey.h"
#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"

namespace {

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// Longest symbolic-link target Linux stores (PATH_MAX without its NUL).
constexpr size_t kMaxLinkTargetBytes = 4095;

BomEntryType typeOfMode(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG: return BomEntryTypeFile;
    case S_IFDIR: return BomEntryTypeDirectory;
    case S_IFLNK: return BomEntryTypeSymlink;
    case S_IFCHR: return BomEntryTypeCharDevice;
    case S_IFBLK: return BomEntryTypeBlockDevice;
    case S_IFIFO: return BomEntryTypeFIFO;
    default: return BomEntryTypeSocket;
  }
}

class TreeScanner {
 public:
  TreeScanner(const std::string& root, uint16_t options, VNBomDatabase& db)
      : root_(root), options_(options), db_(db) {}

  bool scan(VNError* error);

 private:
  bool scanDirectory(int dirFd, const std::string& key);
  bool addItem(int dirFd, const char* name, const std::string& key);
  bool readContents(int dirFd, const char* name, const std::string& key, BomEntry& entry,
                    struct stat& st);
  bool readNames(int dirFd, const std::string& key, std::vector<std::string>& names);
  BomEntry entryOfStat(const struct stat& st) const;
  bool store(const std::string& key, const BomEntry& entry);
  bool assignHardlinkGroups();
  bool fail(int code, const std::string& key, const char* step);

  std::string root_;
  uint16_t options_;
  VNBomDatabase& db_;
  std::vector<unsigned char> buffer_;
  // Names, in walk order, of every multiply linked regular file.
  std::map<std::pair<dev_t, ino_t>, std::vector<std::string>> links_;
  VNError error_;
};

bool TreeScanner::fail(int code, const std::string& key, const char* step) {
  error_ = VNError::posix(code, key.empty() ? root_ : root_ + "/" + VNBomPathForKey(key), step);
  return false;
}

BomEntry TreeScanner::entryOfStat(const struct stat& st) const {
  BomEntry entry;
  entry.type = typeOfMode(st.st_mode);
  entry.mode = static_cast<uint16_t>(st.st_mode);
  entry.options = options_ & BomOptionStat;
  if (entry.type == BomEntryTypeFile) {
    entry.size = static_cast<uint64_t>(st.st_size);
    entry.options |= options_ & BomOptionChecksums;
  }
  if (options_ & BomOptionStat) {
    entry.uid = st.st_uid;
    entry.gid = st.st_gid;
    entry.mtime = st.st_mtim.tv_sec;
  }
  return entry;
}

bool TreeScanner::store(const std::string& key, const BomEntry& entry) {
  return db_.insert(key, entry, /*replace=*/false) || fail(db_.writeErrno(), key, "record");
}

bool TreeScanner::scan(VNError* error) {
  VNUniqueFd rootFd(::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat st {};
  bool ok = (rootFd || fail(errno, {}, "open")) &&
            (::fstat(rootFd.get(), &st) == 0 || fail(errno, {}, "stat")) &&
            (db_.begin() || fail(db_.writeErrno(), {}, "record"));
  ok = ok && store({}, entryOfStat(st)) && scanDirectory(rootFd.get(), {}) &&
       assignHardlinkGroups() && (db_.commitTransaction() || fail(db_.writeErrno(), {}, "record"));
  if (!ok) {
    db_.rollback();
    VNSetError(error, error_);
  }
  return ok;
}

bool TreeScanner::readNames(int dirFd, const std::string& key, std::vector<std::string>& names) {
  VNUniqueFd own(::fcntl(dirFd, F_DUPFD_CLOEXEC, 0));
  if (!own) return fail(errno, key, "open");
  UniqueDir dir(::fdopendir(own.get()));
  if (!dir) return fail(errno, key, "open");
  own.release();
  for (;;) {
    errno = 0;
    struct dirent* item = ::readdir(dir.get());
    if (!item) break;
    std::string_view name = item->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return fail(errno, key, "read directory");
  // Byte order of names is the order of their keys, so entries go in in walk
  // order.
  std::sort(names.begin(), names.end());
  return true;
}

bool TreeScanner::scanDirectory(int dirFd, const std::string& key) {
  std::vector<std::string> names;
  if (!readNames(dirFd, key, names)) return false;
  for (const std::string& name : names)
    if (!addItem(dirFd, name.c_str(), VNBomChildKey(key, name))) return false;
  return true;
}

bool TreeScanner::addItem(int dirFd, const char* name, const std::string& key) {
  if (key.size() > kVNBomMaxKeyBytes) return fail(ENAMETOOLONG, key, "record");
  struct stat st {};
  if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return fail(errno, key, "stat");
  // The store's own file, when the BOM is written into the tree it lists.
  if (db_.file().is(st.st_dev, st.st_ino)) return true;
  BomEntry entry = entryOfStat(st);
  if (!readContents(dirFd, name, key, entry, st) || !store(key, entry)) return false;
  if (entry.type == BomEntryTypeFile && st.st_nlink > 1)
    links_[{st.st_dev, st.st_ino}].push_back(key);
  if (entry.type != BomEntryTypeDirectory) return true;
  VNUniqueFd child(::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!child) return fail(errno, key, "open");
  return scanDirectory(child.get(), key);
}

// Fills in a symbolic link's target and a regular file's checksum. The file
// is checksummed through a descriptor opened without following links and
// without blocking, and its entry describes what that descriptor shows.
bool TreeScanner::readContents(int dirFd, const char* name, const std::string& key,
                               BomEntry& entry, struct stat& st) {
  if (entry.type == BomEntryTypeSymlink) {
    char target[kMaxLinkTargetBytes + 1];
    ssize_t n = ::readlinkat(dirFd, name, target, sizeof target);
    if (n < 0) return fail(errno, key, "read link");
    if (static_cast<size_t>(n) > kMaxLinkTargetBytes) return fail(ENAMETOOLONG, key, "read link");
    entry.symlinkTarget.assign(target, static_cast<size_t>(n));
    return true;
  }
  if (entry.type != BomEntryTypeFile || !(options_ & BomOptionChecksums)) return true;
  VNUniqueFd fd(
      ::openat(dirFd, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!fd) return fail(errno, key, "open");
  if (::fstat(fd.get(), &st) != 0) return fail(errno, key, "stat");
  if (!S_ISREG(st.st_mode)) return fail(ESTALE, key, "read (changed during the scan)");
  entry = entryOfStat(st);
  if (buffer_.empty()) buffer_.resize(kVNBomChecksumBufferBytes);
  int rc = VNBomChecksumFd(fd.get(), buffer_, &entry.checksum, &entry.size);
  return rc == 0 || fail(rc, key, "read");
}

// A group is named by the path of its first name in walk order that fits the
// callers' 1024-byte buffers; a file with one name in the tree has no group.
bool TreeScanner::assignHardlinkGroups() {
  for (const auto& [inode, keys] : links_) {
    if (keys.size() < 2) continue;
    auto fits = std::find_if(keys.begin(), keys.end(), [](const std::string& key) {
      return VNBomPathForKey(key).size() < BomHardlinkPathBufferSize;
    });
    if (fits == keys.end()) continue;
    std::string group = VNBomPathForKey(*fits);
    for (const std::string& key : keys)
      if (!db_.setHardlinkGroup(key, group)) return fail(db_.writeErrno(), key, "record");
  }
  return true;
}

}  // namespace

std::shared_ptr<VNBomDatabase> VNBomScanTree(const std::string& bomPath, const std::string& rootPath,
                                             uint16_t options, VNError* error) {
  std::shared_ptr<VNBomDatabase> db = VNBomDatabase::createFor(bomPath, error);
  if (!db) return nullptr;
  TreeScanner scanner(rootPath, options, *db);
  return scanner.scan(error) ? db : nullptr;
}
