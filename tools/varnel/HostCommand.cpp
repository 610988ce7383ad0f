// varnel host [--system ROOT] [--json]: the computer name, model identifier,
// device type and its description of the running system, or of the system
// at ROOT as its network-configuration preferences give them.
#include <cstdio>

#include "Command.h"
#include "SystemView.h"
#include "foundation/VNValue.h"
#include "host/VNSystemConfiguration.h"

namespace varnel {
namespace {

struct HostOptions {
  std::string root;
  bool json = false;
};

VNValue hostSummary(VNSystem_FileManagerProtocol* system) {
  static const std::pair<const char*, std::optional<std::string> (*)(VNSystem_FileManagerProtocol*)> kFields[] = {
      {"computerName", &VNSystemConfiguration::systemNameForSystem},
      {"modelIdentifier", &VNSystemConfiguration::modelIDForSystem},
      {"deviceType", &VNSystemConfiguration::modelForSystem},
      {"deviceDescription", &VNSystemConfiguration::humanReadableModelForSystem},
  };
  VNValue summary = VNValue::dictionary();
  for (auto [key, field] : kFields)
    if (auto value = field(system)) summary.set(key, *value);
  return summary;
}

void printText(const VNValue& summary) {
  static const std::pair<const char*, const char*> kLines[] = {
      {"computerName", "computer name"},
      {"modelIdentifier", "model"},
      {"deviceType", "device type"},
      {"deviceDescription", "description"},
  };
  for (auto [key, title] : kLines) {
    const std::string* value = summary.findString(key);
    std::printf("%-15s %s\n", (std::string(title) + ":").c_str(),
                value && !value->empty() ? quotedName(*value).c_str() : "(none)");
  }
}

int runHost(const HostOptions& options) {
  std::unique_ptr<VNSystem_FileManager_DiskBased> view;
  if (!options.root.empty() && !(view = openSystemView(options.root))) return kExitFailed;
  VNValue summary = hostSummary(view.get());
  if (view) view->cleanup();
  if (options.json)
    printJSON(summary);
  else
    printText(summary);
  return kExitOK;
}

CommandRegistration registration("host", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand("host", "Show a system's computer name, model and device type");
  auto options = std::make_shared<HostOptions>();
  command->add_option("--system", options->root, "Root folder of a target system instead of the running one");
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runHost(*options); });
});

}  // namespace
}  // namespace varnel
