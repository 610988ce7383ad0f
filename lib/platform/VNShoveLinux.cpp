// The shove by renameat2(2), walking both trees through directory
// descriptors so that no symbolic link is ever followed: the source with a
// VNTreeWalk, the destination's folders being merged into with a
// VNFolderTrail beside it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "foundation/VNFormat.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNShove.h"
#include "platform/internal/VNFolderTrail.h"
#include "platform/internal/VNLockingFlags.h"
#include "platform/internal/VNTreeWalk.h"

namespace {

// A folder of either tree: its descriptor, its path for log lines, and its
// path relative to the tree's top ("" for the top).
struct Folder {
  int fd;
  const std::string& path;
  const std::string& relative;
};

std::string joined(const std::string& relative, const std::string& name) {
  return relative.empty() ? name : relative + "/" + name;
}

class RenameShove final : public VNShove {
 public:
  int shove(const VNShoveRequest& request, const LogCallback& log) override {
    options_ = request.options;
    keep_ = request.keepReplacedIn;
    log_ = &log;
    folders_ = VNFolderTrail(O_RDONLY);
    const std::string sourcePath = withoutTrailingSlashes(request.source);
    destinationPath_ = withoutTrailingSlashes(request.destination);
    VNUniqueFd from(openFolder(AT_FDCWD, sourcePath.c_str()));
    if (!from) return fail(errno, "open source folder", sourcePath);
    VNUniqueFd to(openFolder(AT_FDCWD, destinationPath_.c_str()));
    struct stat top {};
    if (!to || ::fstat(to.get(), &top) != 0) return fail(errno, "open destination folder", destinationPath_);
    destinationRoot_.reset(::fcntl(to.get(), F_DUPFD_CLOEXEC, 0));
    if (!destinationRoot_) return fail(errno, "open destination folder", destinationPath_);
    folders_.push(std::move(to), top.st_dev, top.st_ino);
    // Each folder's names are read before anything in it moves: renaming out
    // of a folder while reading it could make the listing skip or repeat
    // entries.
    VNTreeWalk walk(VNAtPath(from.get(), "."), sourcePath);
    while (const VNTreeEntry* entry = walk.read())
      if (int err = visit(walk, *entry)) return err;
    return 0;
  }

 private:
  // Paths only name items in log lines; "/" stays "/".
  static std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
  }

  static int openFolder(int at, const char* name) {
    return ::openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }

  int fail(int code, const char* step, const std::string& path) {
    if (*log_)
      (*log_)(VNShoveLogError, VNFormat("cannot %s '%s': %s", step, path, std::strerror(code)));
    return code;
  }

  // Moves one source item, or enters the destination folder it merges into.
  int visit(VNTreeWalk& walk, const VNTreeEntry& entry) {
    if (entry.kind == FTS_DNR || entry.kind == FTS_ERR) return fail(entry.error, entry.step, entry.path);
    if (entry.level == 0) return 0;
    if (entry.kind == FTS_NS) return fail(entry.error, "move", entry.path);
    if (entry.kind == FTS_DP) return leave(entry);
    // The folder holding the item: its path, and its path below the top.
    const std::string fromPath(entry.path, entry.pathLength - std::strlen(entry.name) - 1);
    std::string relative = fromPath.substr(std::min(entry.rootLength, fromPath.size()));
    if (!relative.empty() && relative.front() == '/') relative.erase(0, 1);
    const std::string toPath = relative.empty() ? destinationPath_ : destinationPath_ + "/" + relative;
    bool merging = false;
    if (int err = move({entry.folderFd, fromPath, relative}, {folders_.fd(), toPath, relative}, entry.name, &merging))
      return err;
    if (!merging) walk.skip();
    return 0;
  }

  // Leaves a folder merged into; one moved whole was never entered.
  int leave(const VNTreeEntry& entry) {
    if (folders_.size() <= static_cast<std::size_t>(entry.level)) return 0;
    if (int err = folders_.pop())
      return fail(err, "reopen the folder holding", destinationPath_ + (entry.path + entry.rootLength));
    return 0;
  }

  // Sets `merging` when `name` is a folder to merge into the destination's,
  // which is then held as the deepest of folders_.
  int move(Folder from, Folder to, const std::string& name, bool* merging) {
    const std::string source = from.path + "/" + name;
    const std::string target = to.path + "/" + name;
    int err = renameLifting(from, to, name, RENAME_NOREPLACE);
    if (err == EINVAL) err = renameIfAbsent(from, to, name);
    if (err == 0) return 0;
    if (err != EEXIST) return fail(err, "move", source);
    return resolveConflict(from, to, name, source, target, merging);
  }

  // For file systems without RENAME_NOREPLACE: a look, then a plain rename.
  static int renameIfAbsent(Folder from, Folder to, const std::string& name) {
    struct stat st {};
    if (::fstatat(to.fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
    if (errno != ENOENT) return errno;
    return renameLifting(from, to, name, 0);
  }

  // An immutable or append-only item cannot be renamed: its flags are lifted
  // for the move and put back on it where it ends up.
  static int renameLifting(Folder from, Folder to, const std::string& name, unsigned flags) {
    if (::renameat2(from.fd, name.c_str(), to.fd, name.c_str(), flags) == 0) return 0;
    if (errno != EPERM) return errno;
    const std::optional<std::uint32_t> word = VNLiftLockingFlags(VNAtPath(from.fd, name.c_str()));
    if (!word) return EPERM;
    int err = ::renameat2(from.fd, name.c_str(), to.fd, name.c_str(), flags) == 0 ? 0 : errno;
    const Folder& holder = err == 0 ? to : from;
    if (!VNRestoreFlags(VNAtPath(holder.fd, name.c_str()), *word).ok() && err == 0) err = EPERM;
    return err;
  }

  int resolveConflict(Folder from, Folder to, const std::string& name, const std::string& source,
                      const std::string& target, bool* merging) {
    struct stat src {}, dst {};
    if (::fstatat(from.fd, name.c_str(), &src, AT_SYMLINK_NOFOLLOW) != 0)
      return fail(errno, "examine", source);
    if (::fstatat(to.fd, name.c_str(), &dst, AT_SYMLINK_NOFOLLOW) != 0)
      return fail(errno, "examine", target);
    const bool keeping = !keep_.empty() && (options_ & VNShoveReplaceItems);
    if (S_ISDIR(dst.st_mode) && S_ISDIR(src.st_mode)) {
      if (!(options_ & VNShoveMergeFolders)) return fail(EEXIST, "merge into", target);
      VNUniqueFd subTo(openFolder(to.fd, name.c_str()));
      struct stat held {};
      if (!subTo || ::fstat(subTo.get(), &held) != 0) return fail(errno, "open", target);
      folders_.push(std::move(subTo), held.st_dev, held.st_ino);
      *merging = true;
      return 0;
    }
    if (keeping && !isSameItem(from, to, name, src, dst)) return replaceKeeping(from, to, name, target);
    if (S_ISDIR(dst.st_mode)) return fail(EISDIR, "replace folder", target);
    if (!(options_ & VNShoveReplaceItems)) return fail(EEXIST, "replace", target);
    // The item being replaced may be immutable or append-only; it goes.
    const std::optional<std::uint32_t> replacedWord = VNLiftLockingFlags(VNAtPath(to.fd, name.c_str()));
    // rename(2) replaces a non-folder atomically, but not with a folder.
    const bool removeFirst = S_ISDIR(src.st_mode);
    int err = removeFirst && ::unlinkat(to.fd, name.c_str(), 0) != 0 ? errno : 0;
    if (err == 0) err = renameLifting(from, to, name, 0);
    if (err == 0) return 0;
    if (replacedWord) (void)VNRestoreFlags(VNAtPath(to.fd, name.c_str()), *replacedWord);
    return fail(err, "replace", target);
  }

  // Whether the destination's item is what the source brings, as an earlier
  // run laid it down: same kind, size, modification time, mode and owner,
  // and for a link the same target. Such an item is not kept when replaced.
  static bool isSameItem(Folder from, Folder to, const std::string& name, const struct stat& src,
                         const struct stat& dst) {
    if ((src.st_mode & S_IFMT) != (dst.st_mode & S_IFMT) || src.st_size != dst.st_size ||
        src.st_mode != dst.st_mode || src.st_uid != dst.st_uid || src.st_gid != dst.st_gid ||
        src.st_rdev != dst.st_rdev || src.st_mtim.tv_sec != dst.st_mtim.tv_sec ||
        src.st_mtim.tv_nsec != dst.st_mtim.tv_nsec)
      return false;
    if (!S_ISLNK(src.st_mode)) return true;
    std::string a(static_cast<std::size_t>(src.st_size) + 1, '\0'), b(a.size(), '\0');
    const ssize_t lengthA = ::readlinkat(from.fd, name.c_str(), a.data(), a.size());
    const ssize_t lengthB = ::readlinkat(to.fd, name.c_str(), b.data(), b.size());
    return lengthA >= 0 && lengthA == lengthB && a.compare(0, lengthA, b, 0, lengthB) == 0;
  }

  // Moves the destination's item aside into the keep folder, then the
  // source's item into its place.
  int replaceKeeping(Folder from, Folder to, const std::string& name, const std::string& target) {
    const std::string relative = joined(to.relative, name);
    VNUniqueFd keptIn;
    if (int err = openKeepFolderFor(to.relative, &keptIn)) return fail(err, "make a place to keep", target);
    const std::string kept = destinationPath_ + "/" + joined(keep_, relative);
    int err = renameLifting(to, {keptIn.get(), kept, relative}, name, RENAME_NOREPLACE);
    if (err == EINVAL) err = renameLifting(to, {keptIn.get(), kept, relative}, name, 0);
    if (err != 0) return fail(err, "keep the replaced item", target);
    if (*log_) (*log_)(VNShoveLogInfo, VNFormat("replaced '%s'; the earlier item is kept at '%s'", target, kept));
    err = renameLifting(from, to, name, RENAME_NOREPLACE);
    if (err == EINVAL) err = renameIfAbsent(from, to, name);
    return err == 0 ? 0 : fail(err, "replace", target);
  }

  // Opens (creating what is missing, mode 0700, never following a link) the
  // folder of the keep tree that mirrors the destination folder `relative`.
  int openKeepFolderFor(const std::string& relative, VNUniqueFd* out) const {
    VNUniqueFd folder(::fcntl(destinationRoot_.get(), F_DUPFD_CLOEXEC, 0));
    if (!folder) return errno;
    const std::string path = joined(keep_, relative);
    for (std::size_t start = 0; start < path.size();) {
      std::size_t end = path.find('/', start);
      if (end == std::string::npos) end = path.size();
      const std::string component = path.substr(start, end - start);
      start = end + 1;
      if (component.empty()) continue;
      if (::mkdirat(folder.get(), component.c_str(), 0700) != 0 && errno != EEXIST) return errno;
      VNUniqueFd child(openFolder(folder.get(), component.c_str()));
      if (!child) return errno;
      folder = std::move(child);
    }
    *out = std::move(folder);
    return 0;
  }

  std::uint32_t options_ = 0;
  std::string keep_;
  std::string destinationPath_;
  VNUniqueFd destinationRoot_;
  // The destination folders being merged into, from the top down.
  VNFolderTrail folders_{O_RDONLY};
  const LogCallback* log_ = nullptr;
};

}  // namespace

std::shared_ptr<VNShove> VNShove::makeDefault() { return std::make_shared<RenameShove>(); }
