// Tetherlinks on Linux: the definitions file of each volume, and the bind
// mounts that join a volume to its partner now (libmount).
#include <libmount/libmount.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "platform/VNPlatformService.h"
#include "platform/VNSystemLog.h"
#include "platform/VNTetherlinkResolver.h"
#include "platform/internal/VNTetherlinkDefinitions.h"

namespace {

using Mapping = std::pair<std::string, std::string>;

struct TableDeleter {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IterDeleter {
  void operator()(libmnt_iter* iter) const { mnt_free_iter(iter); }
};
using Table = std::unique_ptr<libmnt_table, TableDeleter>;

// A folder as the mount table knows it: its path now, and which mount
// shows it, from which device and as which path inside that file system.
struct MountedFolder {
  std::string path;
  int mountId = -1;
  dev_t device = 0;
  std::string fsPath;
};

// True when `path` is `folder` or lies below it; `rest` gets what follows.
bool below(std::string_view path, std::string_view folder, std::string_view* rest) {
  if (folder == "/") folder = "";
  if (!path.starts_with(folder)) return false;
  std::string_view tail = path.substr(folder.size());
  if (!tail.empty() && tail.front() != '/') return false;
  *rest = tail;
  return true;
}

std::optional<std::string> realPath(const std::string& path) {
  std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

std::optional<MountedFolder> mountedFolder(libmnt_table* table, const std::string& path) {
  std::optional<std::string> real = realPath(path);
  struct statx stx {};
  if (!real || ::statx(AT_FDCWD, real->c_str(), 0, STATX_MNT_ID, &stx) != 0 || !(stx.stx_mask & STATX_MNT_ID))
    return std::nullopt;
  std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
  libmnt_fs* fs = nullptr;
  while (iter && mnt_table_next_fs(table, iter.get(), &fs) == 0) {
    std::string_view rest;
    const char* target = mnt_fs_get_target(fs);
    const char* root = mnt_fs_get_root(fs);
    if (static_cast<int>(stx.stx_mnt_id) != mnt_fs_get_id(fs) || !target || !root) continue;
    if (!below(*real, target, &rest)) return std::nullopt;
    std::string fsPath = std::string(root == std::string_view("/") ? "" : root) + std::string(rest);
    return MountedFolder{*real, mnt_fs_get_id(fs), mnt_fs_get_devno(fs), fsPath.empty() ? "/" : fsPath};
  }
  return std::nullopt;
}

// The mounts that show a folder of `from` somewhere below `onto`.
void bindMountsBetween(libmnt_table* table, const MountedFolder& from, const MountedFolder& onto,
                       std::vector<Mapping>& out) {
  std::unique_ptr<libmnt_iter, IterDeleter> iter(mnt_new_iter(MNT_ITER_FORWARD));
  libmnt_fs* fs = nullptr;
  while (iter && mnt_table_next_fs(table, iter.get(), &fs) == 0) {
    const char* target = mnt_fs_get_target(fs);
    const char* root = mnt_fs_get_root(fs);
    std::string_view targetRest, rootRest;
    if (!target || !root || mnt_fs_get_devno(fs) != from.device) continue;
    if (mnt_fs_get_id(fs) == from.mountId || mnt_fs_get_id(fs) == onto.mountId) continue;
    if (!below(target, onto.path, &targetRest) || targetRest.empty()) continue;
    if (!below(root, from.fsPath, &rootRest)) continue;
    out.emplace_back(target, from.path + std::string(rootRest));
  }
}

void logProblems(const VNTetherlinkDefinitions& definitions) {
  for (const std::string& problem : definitions.problems)
    VNPlatformSlot<VNSystemLog>::get()->log(VNSystemLog::Level::Error, "", "", "tetherlink definitions: " + problem);
}

std::vector<Mapping> liveMappings(const std::string& volumeRoot, const VNTetherlinkDefinitions& definitions) {
  std::vector<Mapping> mappings;
  Table table(mnt_new_table());
  if (!definitions.partner || !table || mnt_table_parse_file(table.get(), "/proc/self/mountinfo") != 0)
    return mappings;
  auto volume = mountedFolder(table.get(), volumeRoot);
  auto partner = mountedFolder(table.get(), VNTetherlinkPartnerRoot(volumeRoot, *definitions.partner));
  if (!volume || !partner) return mappings;
  bindMountsBetween(table.get(), *partner, *volume, mappings);
  bindMountsBetween(table.get(), *volume, *partner, mappings);
  return mappings;
}

std::vector<Mapping> writtenMappings(const VNTetherlinkDefinitions& definitions) {
  std::vector<Mapping> mappings;
  for (const auto& link : definitions.links) mappings.emplace_back(link.source, link.destination);
  return mappings;
}

// What one volume of the group yields: a kind-0 volume its definitions as
// written, a kind-1 volume the bind mounts joining it to its partner now
// (only in a live group).
std::vector<Mapping> volumeMappings(const VNTetherlinkResolver::Volume& volume, std::uint32_t options) {
  if (!(options & VNTetherlinkResolver::kGroupDefinitions)) return {};
  bool live = options & VNTetherlinkResolver::kGroupLive;
  if (volume.kind == VNTetherlinkResolver::kKindMounted && !live) return {};
  VNTetherlinkDefinitions definitions = VNReadTetherlinkDefinitions(volume.path);
  if (volume.kind == VNTetherlinkResolver::kKindMounted) return liveMappings(volume.path, definitions);
  logProblems(definitions);
  return live ? std::vector<Mapping>{} : writtenMappings(definitions);
}

class LinuxTetherlinkResolver final : public VNTetherlinkResolver {
 public:
  std::shared_ptr<Volume> openVolume(const char* path, int kind, std::uint32_t options) override {
    return std::make_shared<Volume>(Volume{path ? path : "", kind, options});
  }
  std::shared_ptr<Group> createGroup(std::uint32_t options) override {
    return std::make_shared<Group>(Group{options, {}});
  }
  void addVolume(Group& group, std::shared_ptr<const Volume> volume) override {
    group.volumes.push_back(std::move(volume));
  }
  void iterateMappings(const Group& group, int filter, const MappingCallback& callback) override {
    std::set<Mapping> seen;
    for (const auto& volume : group.volumes) {
      for (const Mapping& mapping : volumeMappings(*volume, group.options)) {
        if (filter == kFilterEachOnce && !seen.insert(mapping).second) continue;
        if (callback(mapping.first.c_str(), mapping.second.c_str()) != 0) return;
      }
    }
  }
};

}  // namespace

std::shared_ptr<VNTetherlinkResolver> VNTetherlinkResolver::makeDefault() {
  return std::make_shared<LinuxTetherlinkResolver>();
}

std::vector<std::string> VNTetherlinkDefinitionProblems(const std::string& volumeRoot) {
  return VNReadTetherlinkDefinitions(volumeRoot).problems;
}
