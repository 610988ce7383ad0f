#include "datatemplate/internal/VNBomScanner.h"

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
#include "platform/internal/VNTreeWalk.h"

namespace {

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
  bool scanTree();
  bool visit(const VNTreeEntry& entry);
  bool addItem(const VNTreeEntry& entry);
  bool readContents(int dirFd, const char* name, const std::string& key, BomEntry& entry,
                    struct stat& st);
  BomEntry entryOfStat(const struct stat& st) const;
  bool store(const std::string& key, const BomEntry& entry);
  bool assignHardlinkGroups();
  bool fail(int code, const std::string& key, const char* step);

  std::string root_;
  uint16_t options_;
  VNBomDatabase& db_;
  std::vector<unsigned char> buffer_;
  // The key of the entry being visited, and the length of the key of each
  // folder on the walk's way down.
  std::string key_;
  std::vector<size_t> keyLengths_;
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
  bool ok = (db_.begin() || fail(db_.writeErrno(), {}, "record")) && scanTree() && assignHardlinkGroups() &&
            (db_.commitTransaction() || fail(db_.writeErrno(), {}, "record"));
  if (!ok) {
    db_.rollback();
    VNSetError(error, error_);
  }
  return ok;
}

// The root (followed when it is a symbolic link) as ".", then every item
// below it, each folder's entries in byte order of their names: the order
// of their keys, so that entries go in in walk order.
bool TreeScanner::scanTree() {
  VNTreeWalk walk(VNAtPath(root_.c_str()), root_, VNTreeWalk::FollowRoot | VNTreeWalk::Sorted);
  const VNTreeEntry* root = walk.read();
  if (root->kind == FTS_NS) return fail(root->error, {}, "open");
  if (root->kind != FTS_D) return fail(ENOTDIR, {}, "open");
  if (!store({}, entryOfStat(*root->status))) return false;
  keyLengths_.push_back(0);
  while (const VNTreeEntry* entry = walk.read())
    if (!visit(*entry)) return false;
  return true;
}

bool TreeScanner::visit(const VNTreeEntry& entry) {
  const auto level = static_cast<size_t>(entry.level);
  if (entry.kind == FTS_DP) return true;
  if (entry.kind == FTS_DNR || entry.kind == FTS_ERR) {
    // A folder of the way down: its key is held.
    const std::string key = key_.substr(0, keyLengths_[std::min(level, keyLengths_.size() - 1)]);
    return fail(entry.error, key, std::string_view(entry.step) == "read folder" ? "read directory" : "open");
  }
  keyLengths_.resize(level);
  key_.resize(keyLengths_.back());
  key_.push_back('\0');
  key_.append(entry.name);
  if (entry.kind == FTS_NS) return fail(entry.error, key_, "stat");
  if (entry.kind == FTS_D) keyLengths_.push_back(key_.size());
  return addItem(entry);
}

bool TreeScanner::addItem(const VNTreeEntry& item) {
  if (key_.size() > kVNBomMaxKeyBytes) return fail(ENAMETOOLONG, key_, "record");
  struct stat st = *item.status;
  // The store's own file, when the BOM is written into the tree it lists.
  if (db_.file().is(st.st_dev, st.st_ino)) return true;
  BomEntry entry = entryOfStat(st);
  if (!readContents(item.folderFd, item.name, key_, entry, st) || !store(key_, entry)) return false;
  if (entry.type == BomEntryTypeFile && st.st_nlink > 1)
    links_[{st.st_dev, st.st_ino}].push_back(key_);
  return true;
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
