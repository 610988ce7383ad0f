#pragma once

#include <cstddef>
#include <optional>
#include <string>

// Reads the regular file at `relativePath` below the folder `folderFd`,
// resolving every component beneath that folder (no "..", absolute link or
// magic link leads out of it). Empty when the file cannot be opened there, is
// no regular file or holds more than `maxBytes`.
std::optional<std::string> VNReadFileBeneath(int folderFd, const char* relativePath, std::size_t maxBytes);
