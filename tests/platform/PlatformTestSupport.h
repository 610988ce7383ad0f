#pragma once

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/VNTestDir.h"

// Reads a whole file, or "<unreadable>".
inline std::string ReadAll(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "<unreadable>";
  std::string text;
  char buffer[65536];
  ssize_t n;
  while ((n = ::read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  ::close(fd);
  return text;
}

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

inline struct stat LstatOf(const std::string& path) {
  struct stat st {};
  ::lstat(path.c_str(), &st);
  return st;
}

// Free bytes of the file system holding `path`, after a sync so that
// delayed allocation has happened.
inline std::uint64_t FreeBytes(const std::string& path) {
  ::sync();
  struct statvfs fs {};
  ::statvfs(path.c_str(), &fs);
  return static_cast<std::uint64_t>(fs.f_bfree) * fs.f_frsize;
}

// FIEMAP flags of each extent of a file (after a sync of its data).
inline std::vector<std::uint32_t> ExtentFlags(const std::string& path) {
  std::vector<std::uint32_t> flags;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return flags;
  constexpr unsigned kExtents = 64;
  std::vector<char> buffer(sizeof(fiemap) + kExtents * sizeof(fiemap_extent));
  auto* map = reinterpret_cast<fiemap*>(buffer.data());
  map->fm_length = FIEMAP_MAX_OFFSET;
  map->fm_flags = FIEMAP_FLAG_SYNC;
  map->fm_extent_count = kExtents;
  if (::ioctl(fd, FS_IOC_FIEMAP, map) == 0)
    for (unsigned i = 0; i < map->fm_mapped_extents; ++i) flags.push_back(map->fm_extents[i].fe_flags);
  ::close(fd);
  return flags;
}

inline bool AllExtentsShared(const std::string& path) {
  std::vector<std::uint32_t> flags = ExtentFlags(path);
  if (flags.empty()) return false;
  for (std::uint32_t f : flags)
    if (!(f & FIEMAP_EXTENT_SHARED)) return false;
  return true;
}
