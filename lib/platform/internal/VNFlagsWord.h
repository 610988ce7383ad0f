#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/internal/VNItemFd.h"

// The pieces of the file-flags word shared by the flags service and the item
// copy, which reads the word of a file it already holds from the statx it
// made anyway instead of asking again.

// Inode flags (FS_*_FL) present in statx's attributes.
unsigned VNInodeFlagsFromStatx(const struct statx& status);

// Whether statx reports this item's inode flags: always for items without
// inode flags (anything but regular files and directories), and for the
// others where the file system fills in the immutable, append-only and
// no-dump attributes.
bool VNStatxReportsInodeFlags(const struct statx& status);

// Whether a regular file or directory is compressed, when statx can tell: a
// file system that reports its inode flags but no compressed attribute has
// no compression. Nothing for other kinds.
std::optional<bool> VNStatxCompressed(const struct statx& status);

// The word of an item with inode flags `inode` (0 for items without) and the
// flags attribute `attribute`.
std::uint32_t VNMergedFlagsWord(bool hasInodeFlags, unsigned inode, std::optional<std::uint32_t> attribute);

// The word of the item statx described, or none where statx does not report
// its inode flags.
std::optional<std::uint32_t> VNFlagsWordFromStatx(const struct statx& status,
                                                  std::optional<std::uint32_t> attribute);

// Parses the attribute's text, "0x" and one to eight hex digits; false for
// anything else.
bool VNParseFlagsAttribute(const std::string& text, std::uint32_t* value);

// Reads the flags attribute of a held item into `*value`, reset when it is
// absent: 0, or the errno of the read (EINVAL for text that is not ours).
int VNReadFlagsAttribute(VNHeldFd item, std::optional<std::uint32_t>* value);

bool VNHasInodeFlags(mode_t mode);
