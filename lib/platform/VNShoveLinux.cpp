// The shove by renameat2(2), walking both trees through directory
// descriptors so that no symbolic link is ever followed.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "foundation/VNFormat.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNShove.h"
#include "platform/internal/VNLockingFlags.h"

namespace {

struct Folder {
  int fd;
  const std::string& path;
};

class RenameShove final : public VNShove {
 public:
  int shove(const std::string& source, const std::string& destination, std::uint32_t options,
            const LogCallback& log) override {
    options_ = options;
    log_ = &log;
    const std::string sourcePath = withoutTrailingSlashes(source);
    const std::string destinationPath = withoutTrailingSlashes(destination);
    VNUniqueFd from(openFolder(AT_FDCWD, sourcePath.c_str()));
    if (!from) return fail(errno, "open source folder", sourcePath);
    VNUniqueFd to(openFolder(AT_FDCWD, destinationPath.c_str()));
    if (!to) return fail(errno, "open destination folder", destinationPath);
    return merge({from.get(), sourcePath}, {to.get(), destinationPath});
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

  // Names are read before anything moves: renaming out of a folder while
  // reading it could make the listing skip or repeat entries.
  static int listNames(int fd, std::vector<std::string>& names) {
    DIR* dir = ::fdopendir(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!dir) return errno;
    errno = 0;
    while (dirent* entry = ::readdir(dir)) {
      if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
        names.emplace_back(entry->d_name);
    }
    int err = errno;
    ::closedir(dir);
    return err;
  }

  int merge(Folder from, Folder to) {
    std::vector<std::string> names;
    if (int err = listNames(from.fd, names)) return fail(err, "read folder", from.path);
    for (const auto& name : names) {
      if (int err = move(from, to, name)) return err;
    }
    return 0;
  }

  int move(Folder from, Folder to, const std::string& name) {
    const std::string source = from.path + "/" + name;
    const std::string target = to.path + "/" + name;
    int err = renameLifting(from, to, name, RENAME_NOREPLACE);
    if (err == EINVAL) err = renameIfAbsent(from, to, name);
    if (err == 0) return 0;
    if (err != EEXIST) return fail(err, "move", source);
    return resolveConflict(from, to, name, source, target);
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
                      const std::string& target) {
    struct stat src {}, dst {};
    if (::fstatat(from.fd, name.c_str(), &src, AT_SYMLINK_NOFOLLOW) != 0)
      return fail(errno, "examine", source);
    if (::fstatat(to.fd, name.c_str(), &dst, AT_SYMLINK_NOFOLLOW) != 0)
      return fail(errno, "examine", target);
    if (S_ISDIR(dst.st_mode)) {
      if (!S_ISDIR(src.st_mode)) return fail(EISDIR, "replace folder", target);
      if (!(options_ & VNShoveMergeFolders)) return fail(EEXIST, "merge into", target);
      VNUniqueFd subFrom(openFolder(from.fd, name.c_str()));
      if (!subFrom) return fail(errno, "open", source);
      VNUniqueFd subTo(openFolder(to.fd, name.c_str()));
      if (!subTo) return fail(errno, "open", target);
      return merge({subFrom.get(), source}, {subTo.get(), target});
    }
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

  std::uint32_t options_ = 0;
  const LogCallback* log_ = nullptr;
};

}  // namespace

std::shared_ptr<VNShove> VNShove::makeDefault() { return std::make_shared<RenameShove>(); }
