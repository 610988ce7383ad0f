// Laying one item down: holding the source, creating the destination as the
// same kind, and moving a regular file's data.
#include "platform/internal/VNItemCopy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/VNCompression.h"
#include "platform/VNPlatformService.h"
#include "platform/internal/VNFlagsWord.h"

namespace {

constexpr int kNewFileFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

VNFsStatus readLinkTarget(int sourceFd, VNAtPath source, std::string* target) {
  std::string buffer(256, '\0');
  for (;;) {
    ssize_t n = ::readlinkat(sourceFd, "", buffer.data(), buffer.size());
    if (n < 0) return VNFsStatus::failure(errno, "read symbolic link", source.path);
    if (static_cast<size_t>(n) < buffer.size()) {
      buffer.resize(static_cast<size_t>(n));
      *target = std::move(buffer);
      return {};
    }
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

int VNItemSide::hold(VNUniqueFd newFd, bool isPathOnly) {
  fd = std::move(newFd);
  pathOnly = isPathOnly;
  if (int code = VNStatxItem(VNAtPath(fd.get(), ""), STATX_BASIC_STATS, &sx)) return code;
  st = VNStatFromStatx(sx);
  return 0;
}

VNCreatedItem::~VNCreatedItem() {
  if (created_) ::unlinkat(item_.dirfd, item_.path, directory_ ? AT_REMOVEDIR : 0);
}

VNFsStatus VNItemCopier::copy(VNAtPath source, VNAtPath destination, VNCopyOptions options, Data data,
                              const struct stat* sourceStatus) {
  return VNItemCopy(source, destination, options).run(data, &methods_, sourceStatus);
}

VNFsStatus VNItemCopy::run(VNItemCopier::Data data, VNContentMethodMemory* methods,
                           const struct stat* sourceStatus) {
  VNFsStatus status = openSource(sourceStatus);
  if (status.ok()) status = has(VNCopyOption::Data) ? create(data, methods) : openDestination();
  if (status.ok()) status = carryMetadata();
  if (status.ok()) created_.dismiss();
  return status;
}

// A source the caller saw as a regular file is opened to read at once (not
// following a link, and without blocking should it have become a FIFO); one
// that is something else by now is held like any other item.
bool VNItemCopy::openKnownFile(const struct stat* sourceStatus) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  if (!sourceStatus || !S_ISREG(sourceStatus->st_mode) || !has(VNCopyOption::NoFollow)) return false;
  VNUniqueFd fd(::openat(source_.dirfd, source_.path, kFlags));
  if (!fd || from_.hold(std::move(fd), /*isPathOnly=*/false) != 0) return false;
  if (S_ISREG(from_.st.st_mode)) return true;
  from_.fd.reset();
  return false;
}

VNFsStatus VNItemCopy::openSource(const struct stat* sourceStatus) {
  if (openKnownFile(sourceStatus)) return {};
  VNUniqueFd fd;
  if (int code = VNOpenItem(source_, !has(VNCopyOption::NoFollow), &fd)) return fail(code, "open", source_);
  if (int code = from_.hold(std::move(fd), /*isPathOnly=*/true)) return fail(code, "read status of", source_);
  return {};
}

VNFsStatus VNItemCopy::holdDestination(VNUniqueFd fd, bool pathOnly) {
  if (int code = to_.hold(std::move(fd), pathOnly)) return fail(code, "read status of", destination_);
  return {};
}

VNFsStatus VNItemCopy::openDestination() {
  VNUniqueFd fd;
  if (int code = VNOpenItem(destination_, /*follow=*/false, &fd)) return fail(code, "open", destination_);
  return holdDestination(std::move(fd), /*pathOnly=*/true);
}

// Under unlink-first an item in the way is removed: anything but a directory,
// and an empty directory unless a directory is being laid down.
VNFsStatus VNItemCopy::removeExisting() {
  if (::unlinkat(destination_.dirfd, destination_.path, 0) == 0 || errno == ENOENT) return {};
  if (errno != EISDIR) return fail(errno, "remove existing item", destination_);
  if (S_ISDIR(from_.st.st_mode)) return {};
  if (::unlinkat(destination_.dirfd, destination_.path, AT_REMOVEDIR) == 0) return {};
  return fail(errno, "remove existing item", destination_);
}

VNFsStatus VNItemCopy::create(VNItemCopier::Data data, VNContentMethodMemory* methods) {
  switch (from_.st.st_mode & S_IFMT) {
    case S_IFREG: return createFile(data, methods);
    case S_IFDIR: return createDirectory();
    case S_IFLNK: return createLink();
    default: return createSpecial();
  }
}

// Creating the item is tried first: the destination is usually new, and an
// item in the way is removed only when the creation finds one.
VNFsStatus VNItemCopy::createItem(const std::function<bool()>& make, const char* step) {
  bool made = make();
  if (!made && errno == EEXIST && has(VNCopyOption::UnlinkFirst)) {
    if (VNFsStatus status = removeExisting(); !status.ok()) return status;
    made = make();
  }
  if (!made) return fail(errno, step, destination_);
  created_.created(/*directory=*/false);
  return openDestination();
}

VNFsStatus VNItemCopy::createLink() {
  std::string target;
  if (VNFsStatus status = readLinkTarget(from_.fd.get(), source_, &target); !status.ok()) return status;
  return createItem([&] { return ::symlinkat(target.c_str(), destination_.dirfd, destination_.path) == 0; },
                    "create symbolic link");
}

VNFsStatus VNItemCopy::createSpecial() {
  const mode_t kind = from_.st.st_mode & S_IFMT;
  return createItem(
      [&] { return ::mknodat(destination_.dirfd, destination_.path, kind | 0600, from_.st.st_rdev) == 0; },
      "create special file");
}

// An existing directory stays; under unlink-first anything else in the way
// is replaced.
VNFsStatus VNItemCopy::createDirectory() {
  auto make = [&] { return ::mkdirat(destination_.dirfd, destination_.path, 0700) == 0; };
  bool made = make();
  if (!made && errno == EEXIST && has(VNCopyOption::UnlinkFirst)) {
    if (::unlinkat(destination_.dirfd, destination_.path, 0) == 0)
      made = make();
    else if (errno != EISDIR)
      return fail(errno, "remove existing item", destination_);
    else
      errno = EEXIST;
  }
  if (made)
    created_.created(/*directory=*/true);
  else if (errno != EEXIST)
    return fail(errno, "create directory", destination_);
  return openCreatedDirectory();
}

// Opened to read, so that its metadata takes the f* calls; a directory we may
// not read is held O_PATH instead. A symbolic link in its place is refused.
VNFsStatus VNItemCopy::openCreatedDirectory() {
  bool pathOnly = false;
  int fd = ::openat(destination_.dirfd, destination_.path, kDirectoryFlags);
  if (fd < 0 && errno == EACCES) {
    pathOnly = true;
    fd = ::openat(destination_.dirfd, destination_.path, kDirectoryFlags | O_PATH);
  }
  if (fd < 0) return fail(errno == ELOOP ? ENOTDIR : errno, "create directory", destination_);
  return holdDestination(VNUniqueFd(fd), pathOnly);
}

// A new file that will keep the owner and group it is created with gets the
// source's permission bits (less the umask) at once, which spares a chmod;
// one that changes hands stays private until its owner is set (the chmod
// follows then anyway). Set-id bits come with the stat fields.
VNFsStatus VNItemCopy::createFile(VNItemCopier::Data data, VNContentMethodMemory* methods) {
  if (from_.pathOnly) {
    VNUniqueFd input;
    if (int code = VNReopenItem(from_.fd.get(), O_RDONLY, &input)) return fail(code, "open", source_);
    from_.fd = std::move(input);
    from_.pathOnly = false;
  }

  const bool keepsOwner = from_.st.st_uid == ::geteuid() && from_.st.st_gid == ::getegid();
  const mode_t mode = keepsOwner ? from_.st.st_mode & 0777 : 0600;
  int fd = ::openat(destination_.dirfd, destination_.path, kNewFileFlags, mode);
  if (fd < 0 && errno == EEXIST && has(VNCopyOption::UnlinkFirst)) {
    if (VNFsStatus status = removeExisting(); !status.ok()) return status;
    fd = ::openat(destination_.dirfd, destination_.path, kNewFileFlags, mode);
  }
  if (fd >= 0) {
    created_.created(/*directory=*/false);
  } else if (errno == EEXIST && data == VNItemCopier::Data::AnyMethod) {
    if (VNFsStatus status = openExistingFile(&fd); !status.ok()) return status;
  } else {
    return fail(errno, "create file", destination_);
  }
  VNUniqueFd output(fd);
  if (data == VNItemCopier::Data::AnyMethod) {
    if (VNFsStatus status = keepCompression(output.get()); !status.ok()) return status;
  }
  if (VNFsStatus status = holdDestination(std::move(output), /*pathOnly=*/false); !status.ok()) return status;
  return copyContent(data, methods);
}

VNFsStatus VNItemCopy::copyContent(VNItemCopier::Data data, VNContentMethodMemory* methods) {
  const bool cloneOnly = data == VNItemCopier::Data::CloneOnly;
  VNContentMethod method = methods->methodFor(from_.st.st_dev, to_.st.st_dev);
  const VNContentMethod before = method;
  VNContentResult result = VNCopyContent(from_.fd.get(), to_.fd.get(), from_.st.st_size, cloneOnly, &method);
  if (method != before) methods->remember(from_.st.st_dev, to_.st.st_dev, method);
  if (result.code) return fail(result.code, result.step, result.onSource ? source_ : destination_);
  return {};
}

// Without unlink-first an existing regular file is overwritten in place;
// anything else there is refused, a symbolic link above all (ELOOP).
VNFsStatus VNItemCopy::openExistingFile(int* fd) {
  VNUniqueFd existing;
  if (int code = VNOpenItem(destination_, /*follow=*/false, &existing)) return fail(code, "open", destination_);
  struct stat st {};
  if (::fstat(existing.get(), &st) != 0) return fail(errno, "read status of", destination_);
  if (!S_ISREG(st.st_mode)) {
    int code = S_ISLNK(st.st_mode) ? ELOOP : S_ISDIR(st.st_mode) ? EISDIR : EEXIST;
    return fail(code, "create file", destination_);
  }
  VNUniqueFd output;
  if (int code = VNReopenItem(existing.get(), O_WRONLY | O_TRUNC, &output)) return fail(code, "open", destination_);
  *fd = output.release();
  return {};
}

// Marks the new file compressed before its data arrives, so that the data
// is stored compressed where the source's is. ENOTSUP on either side means
// a file system without compression: the data is stored plainly.
VNFsStatus VNItemCopy::keepCompression(int destinationFd) {
  auto compression = VNPlatformSlot<VNCompression>::get();
  std::optional<bool> known = VNStatxCompressed(from_.sx);
  bool compressed = known.value_or(false);
  if (!known) {
    VNFsStatus status = compression->isCompressed(VNAtPath(from_.fd.get(), ""), &compressed);
    if (status.code == ENOTSUP) return {};
    if (!status.ok()) return fail(status.code, status.step, source_);
  }
  if (!compressed) return {};
  VNFsStatus status = compression->setCompressed(VNAtPath(destinationFd, ""), true);
  if (status.code == ENOTSUP) return {};
  return status.ok() ? status : fail(status.code, status.step, destination_);
}
