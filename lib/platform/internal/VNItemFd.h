#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "foundation/VNUniqueFd.h"
#include "platform/VNFsStatus.h"

// Helpers of the Linux file-system services. An item is held by a descriptor
// opened without following a final symbolic link: one open for I/O (a
// regular file, a directory) takes the f* calls directly; an O_PATH one (a
// symbolic link, a special file, an item not yet known) is reached through
// "/proc/self/fd/N", which names that very inode, a symbolic link itself and
// never its target. Functions return 0 or an errno value.

struct VNHeldFd {
  int fd;
  bool pathOnly;  // O_PATH: metadata only through "/proc/self/fd/N"
};

// Opens `item` O_PATH; a final symbolic link is followed only with `follow`.
int VNOpenItem(VNAtPath item, bool follow, VNUniqueFd* out);
// "/proc/self/fd/<fd>".
std::string VNProcFdPath(int fd);
// Opens the inode behind the O_PATH descriptor `pathFd` for I/O with `flags`.
int VNReopenItem(int pathFd, int flags, VNUniqueFd* out);
// statx of `item` (an empty path: the descriptor itself, of any kind), never
// following a final symbolic link.
int VNStatxItem(VNAtPath item, unsigned mask, struct statx* status);
// The struct stat fields of a statx.
struct stat VNStatFromStatx(const struct statx& status);

// Inode flags (FS_IOC_GETFLAGS/SETFLAGS) of a descriptor opened for I/O.
int VNGetInodeFlags(int fd, unsigned* flags);
int VNSetInodeFlags(int fd, unsigned flags);

// Extended attributes of a held item.
int VNListXattrs(VNHeldFd item, std::vector<std::string>* names);
// ENODATA when the attribute is absent.
int VNGetXattr(VNHeldFd item, const char* name, std::string* value);
int VNSetXattr(VNHeldFd item, const char* name, const std::string& value);
// Removing an absent attribute succeeds.
int VNRemoveXattr(VNHeldFd item, const char* name);
