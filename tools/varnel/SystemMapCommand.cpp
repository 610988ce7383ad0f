// varnel system map: where paths of a target system lie on this host now.
#include <cstdio>

#include "Command.h"
#include "SystemView.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct MapOptions {
  std::string root;
  std::vector<std::string> paths;
  bool json = false;
};

int runMap(const MapOptions& options) {
  std::vector<VNFileURL> targets;
  for (const std::string& text : options.paths) {
    std::optional<VNFileURL> target = targetPathArgument(text);
    if (!target) return kExitUsage;
    targets.push_back(*target);
  }
  auto view = openSystemView(options.root);
  if (!view) return kExitFailed;
  VNValue::Array entries;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    bool exists = false;
    std::optional<VNFileURL> mapped = view->pathToRemoteFile(targets[i], &exists, true);
    VNValue entry = VNValue::dictionary();
    entry.set("path", options.paths[i]);
    if (mapped) entry.set("location", mapped->path());
    entry.set("exists", exists);
    if (!options.json)
      std::printf("%s -> %s (%s)\n", quotedName(options.paths[i]).c_str(),
                  mapped ? quotedName(mapped->path()).c_str() : "(nowhere)", exists ? "present" : "absent");
    entries.push_back(std::move(entry));
  }
  if (options.json) printJSON(VNValue(std::move(entries)));
  return kExitOK;
}

CommandRegistration registration("system map", [](CLI::App& app, int& status) {
  auto* command = systemCommand(app)->add_subcommand("map", "Show where paths of a target system lie on disk now");
  auto options = std::make_shared<MapOptions>();
  command->add_option("ROOT", options->root, "Root folder of the target system")->required();
  command->add_option("PATH", options->paths, "Paths as the target system sees them, each beginning with /")
      ->required();
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runMap(*options); });
});

}  // namespace
}  // namespace varnel
