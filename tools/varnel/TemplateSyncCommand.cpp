// varnel template sync: whether the data template laid down on a data volume
// still belongs to the system on its system volume.
#include <cstdio>

#include "Command.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct SyncOptions {
  std::string systemRoot;
  std::string dataRoot;
  bool json = false;
};

const char* stateName(VNUTemplateSyncState state) {
  switch (state) {
    case VNUTemplateSyncStateInSync: return "in-sync";
    case VNUTemplateSyncStateOutOfSync: return "out-of-sync";
    case VNUTemplateSyncStateNoTemplateReceipt: return "no-template-receipt";
    case VNUTemplateSyncStateNoSystemVersion: return "no-system-version";
  }
  return "unknown";
}

std::string below(const std::string& root, const std::string& relative) {
  return root + (root.ends_with('/') ? "" : "/") + relative;
}

// Which file the state is about, for the message beside an exit status of 1.
std::string explanation(VNUTemplateSyncState state, const std::string& versionFile, const std::string& receipt) {
  switch (state) {
    case VNUTemplateSyncStateInSync: return {};
    case VNUTemplateSyncStateOutOfSync:
      return "the template receipt " + quotedName(receipt) + " names another version or build than " +
             quotedName(versionFile);
    case VNUTemplateSyncStateNoTemplateReceipt:
      return "no readable, non-empty template receipt at " + quotedName(receipt);
    case VNUTemplateSyncStateNoSystemVersion:
      return "no readable, non-empty system version file at " + quotedName(versionFile);
  }
  return {};
}

int runSync(const SyncOptions& options) {
  const std::string& data = options.dataRoot.empty() ? options.systemRoot : options.dataRoot;
  std::string versionFile = below(options.systemRoot, VNDataTemplateLocations::kSystemVersionFile);
  std::string receipt = below(data, std::string(VNDataTemplateLocations::kReceiptsFolder) + "/" + VNUDTTemplateReceiptIdentifier + ".plist");
  VNUTemplateSyncState state = VNUDataTemplateUtilities::determineTemplateSyncBetween(
      VNFileURL::fileURLWithPath(options.systemRoot, /*isDirectory=*/true),
      options.dataRoot.empty() ? VNFileURL() : VNFileURL::fileURLWithPath(options.dataRoot, /*isDirectory=*/true));
  if (options.json) {
    VNValue result = VNValue::dictionary();
    result.set("state", stateName(state));
    result.set("code", static_cast<std::uint64_t>(state));
    result.set("systemVersionFile", versionFile);
    result.set("templateReceipt", receipt);
    printJSON(result);
  } else {
    std::printf("%s\n", stateName(state));
  }
  if (state == VNUTemplateSyncStateInSync) return kExitOK;
  std::fprintf(stderr, "varnel: %s\n", explanation(state, versionFile, receipt).c_str());
  return kExitFailed;
}

CommandRegistration registration("template sync", [](CLI::App& app, int& status) {
  auto* command = templateCommand(app)->add_subcommand(
      "sync", "Tell whether a data volume's template belongs to the system on its system volume");
  auto options = std::make_shared<SyncOptions>();
  command->add_option("--system", options->systemRoot, "Root folder of the system volume")->required();
  command->add_option("--data", options->dataRoot, "Root folder of the data volume (default: the system root)");
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runSync(*options); });
});

}  // namespace
}  // namespace varnel
