#pragma once

#include <string>

// True when every data extent of the regular file at `path` is shared with
// another file (FIEMAP_EXTENT_SHARED): the file is a whole clone. False for a
// file without extents or when FIEMAP fails.
bool VNAllExtentsShared(const std::string& path);
