#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

// The mounts of one btrfs file system, and paths through them to its
// subvolumes.
struct VNBtrfsMount {
  std::string target;
  std::string root;    // the folder of the file system it shows, "/@system"
  std::string source;  // the device
};

// The UUID of the btrfs file system holding `fd`, in canonical form.
std::optional<std::string> VNBtrfsUUID(int fd);
// Every mount of the file system with `uuid`, in mount-table order.
std::vector<VNBtrfsMount> VNBtrfsMountsOf(const std::string& uuid);
// A path to `pathInContainer` (from the top of the file system) through one
// of `mounts`, if any shows it.
std::optional<std::string> VNBtrfsReachablePath(const std::vector<VNBtrfsMount>& mounts,
                                                const std::string& pathInContainer);
// The target of the first mount that shows exactly `pathInContainer`.
std::optional<std::string> VNBtrfsMountPointOf(const std::vector<VNBtrfsMount>& mounts,
                                               const std::string& pathInContainer);

// The top of a btrfs file system mounted read-only in a private temporary
// folder while this object lives, for subvolumes no mount reaches.
class VNBtrfsTopMount {
 public:
  static std::unique_ptr<VNBtrfsTopMount> mount(const std::string& device);
  ~VNBtrfsTopMount();
  VNBtrfsTopMount(const VNBtrfsTopMount&) = delete;
  VNBtrfsTopMount& operator=(const VNBtrfsTopMount&) = delete;
  const std::string& path() const { return folder_; }

 private:
  explicit VNBtrfsTopMount(std::string folder) : folder_(std::move(folder)) {}
  std::string folder_;
};
