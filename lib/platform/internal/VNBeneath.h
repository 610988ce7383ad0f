#pragma once

#include <string>
#include <string_view>

// Changes to files in folders below a held folder, each folder reached with
// no symbolic link anywhere on the way and nothing leading out of the held
// folder: a link planted on a users' volume never carries a change
// elsewhere. Functions return 0 or an errno value (ELOOP when a folder on
// the way is a symbolic link).

// Opens the item `relative` below the folder `folderFd` with `flags` (one
// of O_RDONLY and O_PATH, with O_DIRECTORY for a folder); `relative` may be
// longer than PATH_MAX. Returns the descriptor, or -1 with errno set. "" is
// the held folder itself.
[[nodiscard]] int VNOpenBeneath(int folderFd, std::string_view relative, int flags);

// Opens the folder `relative` below the folder `folderFd` for reading;
// returns the descriptor, or -1 with errno set. "" is the held folder itself.
[[nodiscard]] int VNOpenFolderBeneath(int folderFd, const std::string& relative);

// Renames the non-folder entry `name` of the folder `fromFolder` below
// `fromFd` to the same name in the folder `toFolder` below `toFd`, replacing
// a non-folder item there, and syncs the receiving folder so that the move
// lasts.
[[nodiscard]] int VNMoveFileBeneath(int fromFd, const std::string& fromFolder, int toFd, const std::string& toFolder,
                      const std::string& name);

// Removes the non-folder entry `name` of the folder `folder` below `fd`. A
// missing entry or folder counts as removed.
[[nodiscard]] int VNRemoveFileBeneath(int fd, const std::string& folder, const std::string& name);

// Creates the folder `relative` below `fd` (its parent must exist) with
// `mode`, umask aside. EEXIST when something of that name is there.
[[nodiscard]] int VNMakeFolderBeneath(int fd, const std::string& relative, unsigned mode);

// Removes the folder `relative` below `fd` when it is empty; ENOTEMPTY when
// it is not.
[[nodiscard]] int VNRemoveEmptyFolderBeneath(int fd, const std::string& relative);

// Whether the folder `folder` below `fd` has an entry `name` (of any kind).
[[nodiscard]] bool VNEntryExistsBeneath(int fd, const std::string& folder, const std::string& name);
