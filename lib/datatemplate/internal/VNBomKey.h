#pragma once

#include <optional>
#include <string>
#include <string_view>

// Walk keys of BOM entries. A path "a/b" is stored as the key "\0a\0b": every
// component is preceded by a NUL byte, and the root is the empty key. File
// names never hold NUL, so under byte order (memcmp) everything below a path
// sorts right after it and before its next sibling ("a/b" < "a/b/c" < "a.b",
// which plain path order gets wrong since '.' < '/'). A walk is therefore one
// range scan and skipping a subtree one seek.

// Longest key we store; deeper or longer paths are refused.
inline constexpr size_t kVNBomMaxKeyBytes = 16384;

// The key of `path`, ignoring a leading run of "/" and "./", "." components
// and repeated or trailing slashes; nothing for a path with a ".." component
// or a key longer than kVNBomMaxKeyBytes.
std::optional<std::string> VNBomKeyForPath(std::string_view path);

// Whether `key` is one VNBomKeyForPath can give: empty, or NUL-led non-empty
// components without '/', "." or "..", at most kVNBomMaxKeyBytes long.
bool VNBomIsValidKey(std::string_view key);

// "a/b" for the key "\0a\0b", "." for the root key.
std::string VNBomPathForKey(std::string_view key);

// Last component of the key's path, "." for the root key.
std::string VNBomShortNameForKey(std::string_view key);

// First key after `key` and everything below it: the upper bound of its
// subtree.
inline std::string VNBomKeyAfterSubtree(std::string_view key) {
  return std::string(key) + '\x01';
}

// First key that may lie below `key`: the lower bound of its descendants.
inline std::string VNBomKeyOfFirstDescendant(std::string_view key) {
  return std::string(key) + '\0';
}

// Appends the component `name` (no slash, no NUL) to `key`.
inline std::string VNBomChildKey(std::string_view key, std::string_view name) {
  std::string child;
  child.reserve(key.size() + 1 + name.size());
  child.append(key).push_back('\0');
  child.append(name);
  return child;
}
