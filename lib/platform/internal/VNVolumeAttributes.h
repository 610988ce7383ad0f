#pragma once

#include <optional>
#include <string>
#include <string_view>

// The role and group a subvolume records (docs/volumes.md). Values are read
// strictly: anything but a known role, or a UUID in its canonical form, is
// no value at all.
std::optional<std::string> VNParseVolumeRole(std::string_view raw);
std::optional<std::string> VNParseVolumeGroup(std::string_view raw);

struct VNVolumeAttributes {
  std::optional<std::string> role;
  std::optional<std::string> group;
};

// The attributes of the folder at `path` itself (a link is not followed);
// none when they cannot be read.
VNVolumeAttributes VNReadVolumeAttributes(const std::string& path);
// The group alone.
std::optional<std::string> VNReadVolumeGroup(const std::string& path);
// Records them on the folder open at `fd`; 0 or an errno.
int VNWriteVolumeAttributes(int fd, const std::string& role, const std::string& group);
