#pragma once

#include <string>
#include <vector>

#include "foundation/VNUniqueFd.h"
#include "platform/VNFsStatus.h"

// Helpers of the Linux file-system services. An item is held by an O_PATH
// descriptor opened without following a final symbolic link; its metadata
// is then read and written through "/proc/self/fd/N", which names that very
// inode (a symbolic link itself, never its target). Functions return 0 or
// an errno value.

// Opens `item` O_PATH; a final symbolic link is followed only with `follow`.
int VNOpenItem(VNAtPath item, bool follow, VNUniqueFd* out);
// "/proc/self/fd/<fd>".
std::string VNProcFdPath(int fd);
// Opens the inode behind the O_PATH descriptor `pathFd` for I/O with `flags`.
int VNReopenItem(int pathFd, int flags, VNUniqueFd* out);

// Inode flags (FS_IOC_GETFLAGS/SETFLAGS) of a descriptor opened for I/O.
int VNGetInodeFlags(int fd, unsigned* flags);
int VNSetInodeFlags(int fd, unsigned flags);

// Extended attributes of the item behind the O_PATH descriptor `pathFd`.
int VNListXattrs(int pathFd, std::vector<std::string>* names);
// ENODATA when the attribute is absent.
int VNGetXattr(int pathFd, const char* name, std::string* value);
int VNSetXattr(int pathFd, const char* name, const std::string& value);
// Removing an absent attribute succeeds.
int VNRemoveXattr(int pathFd, const char* name);
