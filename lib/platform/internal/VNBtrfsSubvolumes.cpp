// Subvolumes from the btrfs root tree: ROOT_ITEM entries give each one's
// flags and parent UUID, ROOT_BACKREF entries its name and parent.
#include "platform/internal/VNBtrfsSubvolumes.h"

#include <linux/btrfs.h>
#include <linux/btrfs_tree.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <memory>

namespace {

constexpr std::size_t kBufferBytes = 256 * 1024;
constexpr std::uint64_t kTop = BTRFS_FS_TREE_OBJECTID;

struct Found {
  bool readOnly = false;
  bool isSnapshot = false;
  bool hasRoot = false;
  std::uint64_t parent = 0;
  std::uint64_t dirId = 0;
  std::string name;
};

void readRootItem(const std::uint8_t* data, std::size_t length, Found& found) {
  found.hasRoot = true;
  if (length >= offsetof(btrfs_root_item, flags) + sizeof(__le64)) {
    __le64 flags;
    std::memcpy(&flags, data + offsetof(btrfs_root_item, flags), sizeof flags);
    found.readOnly = flags & BTRFS_ROOT_SUBVOL_RDONLY;
  }
  if (length >= offsetof(btrfs_root_item, parent_uuid) + BTRFS_UUID_SIZE) {
    const std::uint8_t* uuid = data + offsetof(btrfs_root_item, parent_uuid);
    found.isSnapshot = std::any_of(uuid, uuid + BTRFS_UUID_SIZE, [](std::uint8_t b) { return b != 0; });
  }
}

void readBackref(const std::uint8_t* data, std::size_t length, std::uint64_t parent, Found& found) {
  if (length < sizeof(btrfs_root_ref)) return;
  btrfs_root_ref ref;
  std::memcpy(&ref, data, sizeof ref);
  if (sizeof ref + ref.name_len > length) return;
  found.parent = parent;
  found.dirId = ref.dirid;
  found.name.assign(reinterpret_cast<const char*>(data + sizeof ref), ref.name_len);
}

// Reads root items and back references of subvolumes, `kBufferBytes` at a
// time, into `found`. False when the search is refused.
bool searchRootTree(int fd, std::map<std::uint64_t, Found>& found) {
  std::unique_ptr<std::uint8_t[]> storage(new std::uint8_t[sizeof(btrfs_ioctl_search_args_v2) + kBufferBytes]);
  auto* args = reinterpret_cast<btrfs_ioctl_search_args_v2*>(storage.get());
  std::memset(args, 0, sizeof *args);
  args->key.tree_id = BTRFS_ROOT_TREE_OBJECTID;
  args->key.min_objectid = kTop;
  args->key.max_objectid = BTRFS_LAST_FREE_OBJECTID;
  args->key.min_type = BTRFS_ROOT_ITEM_KEY;
  args->key.max_type = BTRFS_ROOT_BACKREF_KEY;
  args->key.max_offset = UINT64_MAX;
  args->key.max_transid = UINT64_MAX;
  for (;;) {
    args->key.nr_items = UINT32_MAX;
    args->buf_size = kBufferBytes;
    if (::ioctl(fd, BTRFS_IOC_TREE_SEARCH_V2, args) != 0) return false;
    if (args->key.nr_items == 0) return true;
    std::size_t at = 0;
    btrfs_ioctl_search_header header{};
    for (std::uint32_t i = 0; i < args->key.nr_items; ++i) {
      if (at + sizeof header > kBufferBytes) return true;
      std::memcpy(&header, args->buf + at, sizeof header);
      at += sizeof header;
      if (at + header.len > kBufferBytes) return true;
      if (header.type == BTRFS_ROOT_ITEM_KEY)
        readRootItem(args->buf + at, header.len, found[header.objectid]);
      else if (header.type == BTRFS_ROOT_BACKREF_KEY)
        readBackref(args->buf + at, header.len, header.offset, found[header.objectid]);
      at += header.len;
    }
    // Go on after the last key seen.
    args->key.min_objectid = header.objectid;
    args->key.min_type = header.type;
    args->key.min_offset = header.offset + 1;
    if (header.offset == UINT64_MAX) {
      args->key.min_offset = 0;
      if (++args->key.min_type > BTRFS_ROOT_BACKREF_KEY) {
        args->key.min_type = BTRFS_ROOT_ITEM_KEY;
        if (++args->key.min_objectid == 0) return true;
      }
    }
  }
}

// The folder `dirId` of subvolume `tree`, relative to that subvolume's root
// ("" for the root itself).
std::string folderInSubvolume(int fd, std::uint64_t tree, std::uint64_t dirId) {
  if (dirId == BTRFS_FIRST_FREE_OBJECTID) return {};
  btrfs_ioctl_ino_lookup_args args{};
  args.treeid = tree;
  args.objectid = dirId;
  if (::ioctl(fd, BTRFS_IOC_INO_LOOKUP, &args) != 0) return {};
  std::string folder(args.name, strnlen(args.name, sizeof args.name));
  if (!folder.empty() && folder.back() == '/') folder.pop_back();
  return folder;
}

std::string pathOf(int fd, std::uint64_t id, std::map<std::uint64_t, Found>& found,
                   std::map<std::uint64_t, std::string>& paths, int depth = 0) {
  if (id == kTop) return "/";
  if (auto known = paths.find(id); known != paths.end()) return known->second;
  const Found& item = found[id];
  if (item.name.empty() || depth > 4096) return {};
  std::string parent = pathOf(fd, item.parent, found, paths, depth + 1);
  if (parent.empty()) return {};
  std::string folder = folderInSubvolume(fd, item.parent, item.dirId);
  std::string path = (parent == "/" ? "" : parent) + (folder.empty() ? "" : "/" + folder) + "/" + item.name;
  paths[id] = path;
  return path;
}

}  // namespace

std::vector<VNBtrfsSubvolume> VNBtrfsListSubvolumes(int fd) {
  std::map<std::uint64_t, Found> found;
  if (!searchRootTree(fd, found)) return {};
  std::map<std::uint64_t, std::string> paths;
  std::vector<VNBtrfsSubvolume> subvolumes;
  for (auto& [id, item] : found) {
    if (!item.hasRoot || (id != kTop && id < BTRFS_FIRST_FREE_OBJECTID)) continue;
    std::string path = pathOf(fd, id, found, paths);
    if (path.empty()) continue;
    subvolumes.push_back({id, std::move(path), item.readOnly, item.isSnapshot});
  }
  return subvolumes;
}
