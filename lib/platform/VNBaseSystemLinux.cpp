#include <unistd.h>

#include "platform/VNBaseSystem.h"

namespace {

class LinuxBaseSystem final : public VNBaseSystem {
 public:
  explicit LinuxBaseSystem(const std::string& markerPath)
      : inBaseSystem_(::access(markerPath.c_str(), F_OK) == 0) {}

  bool isBaseSystem(std::string_view) override { return inBaseSystem_; }

 private:
  const bool inBaseSystem_;
};

}  // namespace

std::shared_ptr<VNBaseSystem> VNBaseSystem::makeDefault() {
  return makeWithMarker("/etc/initrd-release");
}

std::shared_ptr<VNBaseSystem> VNBaseSystem::makeWithMarker(const std::string& markerPath) {
  return std::make_shared<LinuxBaseSystem>(markerPath);
}
