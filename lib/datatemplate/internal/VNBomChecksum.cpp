#include "datatemplate/internal/VNBomChecksum.h"

#include <unistd.h>
#include <zlib.h>

#include <cerrno>

int VNBomChecksumFd(int fd, std::span<unsigned char> buffer, uint32_t* checksum,
                    uint64_t* length) {
  uLong crc = crc32_z(0, nullptr, 0);
  uint64_t total = 0;
  for (;;) {
    ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) break;
    crc = crc32_z(crc, buffer.data(), static_cast<size_t>(n));
    total += static_cast<uint64_t>(n);
  }
  *checksum = static_cast<uint32_t>(crc);
  *length = total;
  return 0;
}
