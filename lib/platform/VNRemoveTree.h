#pragma once

#include <string>

#include "foundation/VNExport.h"

class VNError;

// Removes the item at `path` and, for a directory, everything below it,
// relative to directory descriptors and never following a symbolic link.
// Items below `path` that vanish meanwhile count as removed; `path` itself
// missing fails with ENOENT. On failure the error names the step and the
// path that failed, and what was removed before it stays removed.
//
// An immutable or append-only item stops the removal with EPERM unless
// `locked` is Lift: then those flags are lifted from each item about to be
// removed (and from each folder whose entries are), as a tree the library
// made itself and must be able to clear again needs.
enum class VNRemoveLocked { Refuse, Lift };
[[nodiscard]] VN_EXPORT bool VNRemoveTree(const std::string& path, VNError* error = nullptr,
                            VNRemoveLocked locked = VNRemoveLocked::Refuse);

// The same for the entry `name` of the folder held by `folderFd`; `path`
// names that entry in errors. `name` is one component: a name holding "/",
// "." or ".." fails with EINVAL.
[[nodiscard]] VN_EXPORT bool VNRemoveTreeAt(int folderFd, const std::string& name, const std::string& path,
                              VNError* error = nullptr);
