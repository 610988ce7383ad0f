// varnel battery: logs the battery line and prints it.
#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "host/VNBatteryLog.h"

namespace varnel {
namespace {

int runBattery(const std::string& sysfsRoot) {
  const VNBatteryLogResult result = VNLogBatteryStateReport(
      sysfsRoot.empty() ? nullptr : VNPowerSources::makeForSysfsRoot(sysfsRoot));
  if (!result.logged) {
    std::fprintf(stderr, "varnel: %s\n", result.message.c_str());
    return kExitFailed;
  }
  std::printf("%s\n", result.message.c_str());
  return kExitOK;
}

CommandRegistration registration("battery", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand(
      "battery", "Log the battery and power-source line to the library's log and print it");
  auto sysfsRoot = std::make_shared<std::string>();
  command->add_option("--sysfs-root", *sysfsRoot, "Read the power supplies under this folder instead of /sys");
  command->callback([sysfsRoot, &status] { status = runBattery(*sysfsRoot); });
});

}  // namespace
}  // namespace varnel
