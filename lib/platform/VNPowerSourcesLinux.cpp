#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "foundation/VNUniqueFd.h"
#include "platform/VNPowerSources.h"
#include "platform/internal/VNPowerSupplyReading.h"
#include "platform/internal/VNSmallFile.h"

namespace {

// Attribute files are a few bytes; anything longer is not a value of ours.
constexpr std::size_t kAttributeLimit = 4096;

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

// The supply folders are links into the device tree, which is why the open
// follows them; nothing here writes.
std::optional<VNSupplyFiles> readSupply(int classFolder, const std::string& name) {
  VNUniqueFd folder(::openat(classFolder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return std::nullopt;
  VNSupplyFiles files;
  for (const auto& attribute : VNSupplyAttributeNames())
    if (auto text = VNReadSmallFile(folder.get(), attribute, kAttributeLimit)) files.emplace(attribute, std::move(*text));
  return files;
}

class VNSysfsPowerSources final : public VNPowerSources {
 public:
  explicit VNSysfsPowerSources(std::string root) : classPath_(std::move(root) + "/class/power_supply") {}

  std::optional<std::vector<std::optional<VNValue>>> batteryControllers() override {
    auto supplies = readSupplies();
    if (!supplies) return std::nullopt;
    const bool external = VNExternalPowerConnected(supplies->readable);
    std::vector<std::optional<VNValue>> entries;
    for (const auto& supply : supplies->all) {
      if (!supply) entries.emplace_back();
      else if (VNSupplyIsSystemBattery(supply->files))
        entries.emplace_back(VNBatteryRegistryProperties(supply->files, external));
    }
    return entries;
  }

  std::optional<Snapshot> copySnapshot() override {
    auto supplies = readSupplies();
    if (!supplies) return std::nullopt;
    Snapshot snapshot;
    for (const auto& supply : supplies->readable) {
      if (!VNSupplyIsActiveBattery(supply.files)) continue;
      snapshot.hasActiveBattery = true;
      snapshot.activeBatteryDescription =
          VNBatteryDescription(supply.files, VNExternalPowerConnected(supplies->readable));
      break;
    }
    return snapshot;
  }

 private:
  // Every supply by name; `all` keeps a gap where a supply folder could not
  // be read, `readable` only the ones that could.
  struct Supplies {
    std::vector<std::optional<VNSupply>> all;
    std::vector<VNSupply> readable;
  };

  std::optional<Supplies> readSupplies() const {
    VNUniqueFd classFolder(::open(classPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!classFolder) return std::nullopt;
    std::vector<std::string> names;
    {
      VNUniqueFd copy(::fcntl(classFolder.get(), F_DUPFD_CLOEXEC, 0));
      std::unique_ptr<DIR, DirCloser> dir(copy ? ::fdopendir(copy.get()) : nullptr);
      if (!dir) return std::nullopt;
      copy.release();
      while (dirent* entry = ::readdir(dir.get()))
        if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    Supplies supplies;
    for (const auto& name : names) {
      auto files = readSupply(classFolder.get(), name);
      if (files) supplies.readable.push_back({name, *files});
      supplies.all.push_back(files ? std::optional<VNSupply>(VNSupply{name, *files}) : std::nullopt);
    }
    return supplies;
  }

  const std::string classPath_;
};

}  // namespace

std::shared_ptr<VNPowerSources> VNPowerSources::makeDefault() { return makeForSysfsRoot("/sys"); }

std::shared_ptr<VNPowerSources> VNPowerSources::makeForSysfsRoot(std::string sysfsRoot) {
  return std::make_shared<VNSysfsPowerSources>(std::move(sysfsRoot));
}
