#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The one CRC-32 routine of the BOM store (zlib's crc32: polynomial
// 0xEDB88320, initial value and final complement 0xFFFFFFFF, length not
// folded in). Reads `fd` from its current offset to the end through
// `buffer`; 0 with `*checksum` and `*length` set, or the errno of the failed
// read with the outputs untouched.
int VNBomChecksumFd(int fd, std::span<unsigned char> buffer, uint32_t* checksum, uint64_t* length);

// Size of the read buffer callers give VNBomChecksumFd.
inline constexpr size_t kVNBomChecksumBufferBytes = 256 * 1024;
