// varnel system show: which view a system root gets, and what it answers.
#include <cstdio>

#include "Command.h"
#include "SystemView.h"
#include "foundation/VNValue.h"
#include "systemview/VNSystem_FileManager_ROSV.h"

namespace varnel {
namespace {

struct ShowOptions {
  std::string root;
  bool json = false;
};

void setOptional(VNValue& summary, const char* key, const std::optional<std::string>& value) {
  if (value) summary.set(key, *value);
}

void setOptional(VNValue& summary, const char* key, const std::optional<VNFileURL>& value) {
  if (value) summary.set(key, value->path());
}

VNValue viewSummary(VNSystem_FileManager_DiskBased& view) {
  VNValue summary = VNValue::dictionary();
  summary.set("view", std::string(view.className()));
  setOptional(summary, "root", view.slash());
  setOptional(summary, "userContentRoot", view.userContentRoot());
  setOptional(summary, "userHomeRoot", view.userHomeRoot());
  setOptional(summary, "productVersion", view.productVersion());
  setOptional(summary, "buildVersion", view.buildVersion());
  if (auto* pair = dynamic_cast<VNSystem_FileManager_ROSV*>(&view)) {
    setOptional(summary, "systemVolumeMount", pair->systemVolumeMount());
    setOptional(summary, "dataVolumeMount", pair->dataVolumeMount());
    summary.set("rootVolume", std::string(pair->pointedAtDataVolume() ? "data" : "system"));
  }
  return summary;
}

void printText(const VNValue& summary) {
  static const std::pair<const char*, const char*> lines[] = {
      {"view", "view"},
      {"root", "root"},
      {"userContentRoot", "user content root"},
      {"userHomeRoot", "home root"},
      {"productVersion", "product version"},
      {"buildVersion", "build version"},
      {"systemVolumeMount", "system volume mount"},
      {"dataVolumeMount", "data volume mount"},
      {"rootVolume", "root lies on"},
  };
  for (auto [key, title] : lines) {
    const std::string* value = summary.findString(key);
    bool pairOnly = std::string_view(key).ends_with("Mount") || std::string_view(key) == "rootVolume";
    if (!value && pairOnly) continue;
    std::printf("%-20s %s\n", (std::string(title) + ":").c_str(), value ? quotedName(*value).c_str() : "(none)");
  }
}

int runShow(const ShowOptions& options) {
  auto view = openSystemView(options.root);
  if (!view) return kExitFailed;
  VNValue summary = viewSummary(*view);
  view->cleanup();
  if (options.json)
    printJSON(summary);
  else
    printText(summary);
  return kExitOK;
}

CommandRegistration registration("system show", [](CLI::App& app, int& status) {
  auto* command = systemCommand(app)->add_subcommand("show", "Show which view a system root gets and its folders and version");
  auto options = std::make_shared<ShowOptions>();
  command->add_option("ROOT", options->root, "Root folder of the target system")->required();
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runShow(*options); });
});

}  // namespace
}  // namespace varnel
