#include "platform/internal/VNVolumeAttributes.h"

#include <sys/xattr.h>

#include <cerrno>
#include <cctype>

#include "platform/VNStorageService.h"

std::optional<std::string> VNParseVolumeRole(std::string_view raw) {
  if (raw == VNStorage::kVolumeRoleSystem || raw == VNStorage::kVolumeRoleData) return std::string(raw);
  return std::nullopt;
}

std::optional<std::string> VNParseVolumeGroup(std::string_view raw) {
  constexpr std::size_t kLength = 36;
  if (raw.size() != kLength) return std::nullopt;
  for (std::size_t i = 0; i < kLength; ++i) {
    bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    unsigned char c = static_cast<unsigned char>(raw[i]);
    if (dash ? c != '-' : !(std::isdigit(c) || (c >= 'a' && c <= 'f'))) return std::nullopt;
  }
  return std::string(raw);
}

namespace {

std::optional<std::string> attribute(const std::string& path, const char* name) {
  char buffer[64];
  ssize_t length = ::lgetxattr(path.c_str(), name, buffer, sizeof buffer);
  if (length < 0) return std::nullopt;
  return std::string(buffer, static_cast<std::size_t>(length));
}

}  // namespace

std::optional<std::string> VNReadVolumeGroup(const std::string& path) {
  std::optional<std::string> group = attribute(path, VNStorage::kGroupAttribute);
  return group ? VNParseVolumeGroup(*group) : std::nullopt;
}

VNVolumeAttributes VNReadVolumeAttributes(const std::string& path) {
  VNVolumeAttributes attributes;
  if (auto role = attribute(path, VNStorage::kRoleAttribute)) attributes.role = VNParseVolumeRole(*role);
  attributes.group = VNReadVolumeGroup(path);
  return attributes;
}

int VNWriteVolumeAttributes(int fd, const std::string& role, const std::string& group) {
  if (::fsetxattr(fd, VNStorage::kRoleAttribute, role.data(), role.size(), 0) != 0) return errno;
  if (::fsetxattr(fd, VNStorage::kGroupAttribute, group.data(), group.size(), 0) != 0) return errno;
  return 0;
}
