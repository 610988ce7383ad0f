#pragma once

#include <cstddef>
#include <optional>
#include <string>

// Reads the small file `name` below the held folder `folder` (AT_FDCWD for a
// path), never following a final symbolic link and never blocking on a FIFO:
// at most `limit` bytes, the rest ignored. Nothing when it cannot be opened
// or read. For the kernel's and the system's one-value files.
std::optional<std::string> VNReadSmallFile(int folder, const std::string& name, std::size_t limit = 4096);
