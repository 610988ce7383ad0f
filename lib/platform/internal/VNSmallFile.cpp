#include "platform/internal/VNSmallFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/VNUniqueFd.h"

std::optional<std::string> VNReadSmallFile(int folder, const std::string& name, std::size_t limit) {
  VNUniqueFd fd(::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd) return std::nullopt;
  std::string text(limit, '\0');
  std::size_t used = 0;
  while (used < text.size()) {
    const ssize_t got = ::read(fd.get(), text.data() + used, text.size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  text.resize(used);
  return text;
}
