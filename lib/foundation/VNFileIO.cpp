#include "foundation/VNFileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/VNError.h"
#include "foundation/VNUniqueFd.h"

namespace {

bool fail(VNError* error, int code, const std::string& path, const char* step) {
  VNSetError(error, VNError::posix(code, path, step));
  return false;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::string parentOf(const std::string& path) {
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::optional<std::string> VNReadFile(const std::string& path, size_t maxBytes, VNError* error) {
  // Non-blocking, so that a FIFO without a writer cannot hang the open; only
  // regular files are read.
  VNUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!fd) return fail(error, errno, path, "open"), std::nullopt;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) return fail(error, errno, path, "stat"), std::nullopt;
  if (S_ISDIR(st.st_mode)) return fail(error, EISDIR, path, "read"), std::nullopt;
  if (!S_ISREG(st.st_mode)) return fail(error, EINVAL, path, "read non-regular file"), std::nullopt;
  std::string out;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail(error, errno, path, "read"), std::nullopt;
    }
    if (n == 0) break;
    if (out.size() + static_cast<size_t>(n) > maxBytes)
      return fail(error, EFBIG, path, "read"), std::nullopt;
    out.append(buffer, static_cast<size_t>(n));
  }
  return out;
}

int VNCreateFileBeside(const std::string& path, unsigned mode, std::string* tempPath,
                       VNError* error) {
  std::string temp = path + ".XXXXXX";
  VNUniqueFd fd(::mkostemp(temp.data(), O_CLOEXEC));
  if (!fd) return fail(error, errno, path, "create a temporary file beside"), -1;
  if (::fchmod(fd.get(), mode) != 0) {
    int code = errno;
    ::unlink(temp.c_str());
    return fail(error, code, path, "set mode of a temporary file beside"), -1;
  }
  *tempPath = std::move(temp);
  return fd.release();
}

bool VNRenameIntoPlace(const std::string& tempPath, const std::string& path, VNError* error) {
  if (::rename(tempPath.c_str(), path.c_str()) != 0) return fail(error, errno, path, "rename into place");
  VNUniqueFd dir(::open(parentOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir) ::fsync(dir.get());  // durability of the rename; the file is already complete
  return true;
}

bool VNWriteFileAtomically(const std::string& path, std::string_view bytes, unsigned mode,
                           VNError* error) {
  std::string temp;
  VNUniqueFd fd(VNCreateFileBeside(path, mode, &temp, error));
  if (!fd) return false;
  auto discard = [&](int code, const char* step) {
    ::unlink(temp.c_str());
    return fail(error, code, path, step);
  };
  if (!writeAll(fd.get(), bytes)) return discard(errno, "write");
  if (::fsync(fd.get()) != 0) return discard(errno, "sync");
  if (::close(fd.release()) != 0) return discard(errno, "close");
  if (!VNRenameIntoPlace(temp, path, error)) return ::unlink(temp.c_str()), false;
  return true;
}
