#pragma once

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "support/VNTestDir.h"

// A file of `bytes` bytes of a pattern that depends on `seed`, written with
// one call per MiB.
inline void WritePatternFile(const std::string& path, size_t bytes, unsigned seed = 1) {
  std::string block(1 << 20, '\0');
  for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>((i * 31 + seed * 7) & 0xff);
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  for (size_t done = 0; fd >= 0 && done < bytes;) {
    size_t n = std::min(block.size(), bytes - done);
    if (::write(fd, block.data(), n) != static_cast<ssize_t>(n)) break;
    done += n;
  }
  ::close(fd);
}

// Free bytes of the file system holding `path`, after a sync so that
// delayed allocation has happened.
inline std::uint64_t FreeBytes(const std::string& path) {
  ::sync();
  struct statvfs fs {};
  ::statvfs(path.c_str(), &fs);
  return static_cast<std::uint64_t>(fs.f_bfree) * fs.f_frsize;
}
