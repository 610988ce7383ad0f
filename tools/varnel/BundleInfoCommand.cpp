// varnel bundle info: the bundle information dictionary of each bundle.
#include <cstdio>

#include "Command.h"
#include "bundles/VNBundleInformation.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct InfoOptions {
  std::vector<std::string> paths;
  bool json = false;
};

void printText(const std::string& path, const VNValue& information) {
  std::printf("%s:\n", quotedName(path).c_str());
  const VNValue::Dictionary& entries = *information.asDictionary();
  if (entries.empty()) std::printf("  (no bundle folder that can be opened)\n");
  for (const auto& [key, value] : entries) {
    const std::string* text = value.asString();
    const bool* flag = value.asBoolean();
    std::string shown = text ? quotedName(*text) : flag ? (*flag ? "true" : "false") : value.description();
    std::printf("  %s: %s\n", key.c_str(), shown.c_str());
  }
}

// Exit status 1 when any path names no bundle that could be opened.
int runInfo(const InfoOptions& options) {
  int status = kExitOK;
  VNValue::Array entries;
  for (const std::string& path : options.paths) {
    VNValue information = VNUtilities::VN_bundleInformationAtPath(VNFileURL::fileURLWithPath(path));
    if (information.asDictionary()->empty()) status = kExitFailed;
    if (!options.json) printText(path, information);
    VNValue entry = VNValue::dictionary();
    entry.set("path", path);
    entry.set("information", std::move(information));
    entries.push_back(std::move(entry));
  }
  if (options.json) printJSON(VNValue(std::move(entries)));
  return status;
}

CommandRegistration registration("bundle info", [](CLI::App& app, int& status) {
  auto* group = commandGroup(app, "bundle", "Read bundle versions and decide which copy of a bundle to keep");
  auto* command = group->add_subcommand("info", "Print the bundle information of each bundle folder");
  auto options = std::make_shared<InfoOptions>();
  command->add_option("PATH", options->paths, "Bundle folders")->required();
  command->add_flag("--json", options->json, "Print an array of {\"path\", \"information\"} as JSON");
  command->callback([options, &status] { status = runInfo(*options); });
});

}  // namespace
}  // namespace varnel
