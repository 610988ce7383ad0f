#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

class VNError;

// Reads a whole regular file. Fails with EFBIG when it is larger than
// `maxBytes`, EISDIR for a folder and EINVAL for any other kind of item (a
// FIFO would block).
VN_EXPORT std::optional<std::string> VNReadFile(const std::string& path, size_t maxBytes,
                                                VNError* error = nullptr);

// Writes `bytes` to a new temporary file beside `path`, syncs it and renames it
// over `path`, so a reader sees the old file or the whole new one. On failure
// the temporary file is removed and any earlier file at `path` is untouched.
VN_EXPORT bool VNWriteFileAtomically(const std::string& path, std::string_view bytes,
                                     unsigned mode = 0644, VNError* error = nullptr);

// The two ends of such a write, for a caller that fills the file itself.
// Creates a new empty file "<path>.XXXXXX" beside `path` with `mode` (umask
// aside), sets `*tempPath` to its name and returns its descriptor, or -1;
// errors name `path`.
VN_EXPORT int VNCreateFileBeside(const std::string& path, unsigned mode, std::string* tempPath,
                                 VNError* error = nullptr);
// Renames the complete, synced file `tempPath` over `path` and syncs the
// folder, so that the rename lasts. Errors name `path`.
VN_EXPORT bool VNRenameIntoPlace(const std::string& tempPath, const std::string& path,
                                 VNError* error = nullptr);
