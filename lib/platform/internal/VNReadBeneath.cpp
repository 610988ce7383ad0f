#include "platform/internal/VNReadBeneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "foundation/VNUniqueFd.h"

namespace {

int openBeneath(int folderFd, const char* relativePath) {
  open_how how{};
  how.flags = O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  return static_cast<int>(::syscall(SYS_openat2, folderFd, relativePath, &how, sizeof how));
}

}  // namespace

std::optional<std::string> VNReadFileBeneath(int folderFd, const char* relativePath, std::size_t maxBytes) {
  VNUniqueFd fd(openBeneath(folderFd, relativePath));
  struct stat item {};
  if (!fd || ::fstat(fd.get(), &item) != 0 || !S_ISREG(item.st_mode)) return std::nullopt;
  if (static_cast<std::size_t>(item.st_size) > maxBytes) return std::nullopt;
  // One byte more than the size, so a file that grew since fstat is noticed;
  // a short read of a regular file is its end, which spares a second read.
  std::string bytes(static_cast<std::size_t>(item.st_size) + 1, '\0');
  std::size_t filled = 0;
  for (;;) {
    std::size_t wanted = bytes.size() - filled;
    ssize_t count = ::read(fd.get(), bytes.data() + filled, wanted);
    if (count < 0) return std::nullopt;
    filled += static_cast<std::size_t>(count);
    if (static_cast<std::size_t>(count) < wanted) break;
    if (filled > maxBytes) return std::nullopt;
    bytes.resize(std::min(bytes.size() * 2, maxBytes + 1));
  }
  bytes.resize(filled);
  return bytes;
}
