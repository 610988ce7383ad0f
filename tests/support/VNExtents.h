#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The FIEMAP flags of each data extent of the regular file at `path`, after
// a sync of its data; empty when it has none or FIEMAP fails.
std::vector<std::uint32_t> VNExtentFlags(const std::string& path);

// True when every data extent of the file is shared with another file
// (FIEMAP_EXTENT_SHARED): the file is a whole clone.
bool VNAllExtentsShared(const std::string& path);
