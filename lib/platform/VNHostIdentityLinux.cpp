#include <fcntl.h>
#include <systemd/sd-bus.h>

#include <memory>

#include "foundation/VNUniqueFd.h"
#include "platform/VNHostIdentity.h"
#include "platform/internal/VNHostIdentityParsing.h"
#include "platform/internal/VNSmallFile.h"

namespace {

// hostnamed is started on demand; a host where it hangs must not hold us.
constexpr std::uint64_t kBusTimeoutMicroseconds = 1'000'000;

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};

// One string property of hostnamed, or nothing when the bus or the service
// does not answer or the value is empty.
std::optional<std::string> hostnamedProperty(const char* property) {
  sd_bus* raw = nullptr;
  if (sd_bus_open_system(&raw) < 0) return std::nullopt;
  std::unique_ptr<sd_bus, BusCloser> bus(raw);
  sd_bus_set_method_call_timeout(bus.get(), kBusTimeoutMicroseconds);
  char* value = nullptr;
  if (sd_bus_get_property_string(bus.get(), "org.freedesktop.hostname1", "/org/freedesktop/hostname1",
                                 "org.freedesktop.hostname1", property, nullptr, &value) < 0)
    return std::nullopt;
  std::unique_ptr<char, decltype(&::free)> owned(value, &::free);
  std::string text = VNSysfsText(value);
  if (text.empty()) return std::nullopt;
  return text;
}

class LinuxHostIdentity final : public VNHostIdentity {
 public:
  LinuxHostIdentity(std::string root, bool askHostnamed)
      : rootFd_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), askHostnamed_(askHostnamed) {}

  std::optional<std::string> computerName() override {
    if (askHostnamed_)
      if (auto name = hostnamedProperty("PrettyHostname")) return name;
    if (auto info = read("etc/machine-info"))
      if (auto name = VNMachineInfoPrettyHostname(*info)) return name;
    std::string kernelName = VNSysfsText(read("proc/sys/kernel/hostname").value_or(""));
    if (kernelName.empty()) return std::nullopt;
    return kernelName;
  }

  std::string modelIdentifier() override {
    return VNModelIdentifierFromFirmware(VNSysfsText(read(kDmi + "product_name").value_or("")),
                                         VNSysfsText(read(kDmi + "product_version").value_or("")));
  }

  std::optional<std::string> chassis() override {
    if (askHostnamed_)
      if (auto word = hostnamedProperty("Chassis")) return word;
    return VNChassisOfFirmwareType(read(kDmi + "chassis_type").value_or(""));
  }

 private:
  inline static const std::string kDmi = "sys/class/dmi/id/";

  // The firmware's files are links into the device tree; the folders on the
  // way are followed, the file itself read without following.
  std::optional<std::string> read(const std::string& relative) {
    if (!rootFd_) return std::nullopt;
    return VNReadSmallFile(rootFd_.get(), relative);
  }

  VNUniqueFd rootFd_;
  bool askHostnamed_;
};

}  // namespace

std::shared_ptr<VNHostIdentity> VNHostIdentity::makeDefault() {
  return std::make_shared<LinuxHostIdentity>("/", true);
}

std::shared_ptr<VNHostIdentity> VNHostIdentity::makeForRoot(std::string root) {
  return std::make_shared<LinuxHostIdentity>(std::move(root), false);
}
