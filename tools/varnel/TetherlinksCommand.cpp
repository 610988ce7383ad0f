// varnel tetherlinks: the folders of a volume that appear inside its partner.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "Command.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "foundation/VNError.h"
#include "foundation/VNValue.h"
#include "platform/VNTetherlinkResolver.h"

namespace varnel {
namespace {

struct TetherlinksOptions {
  std::string volume;
  bool noLive = false;
  bool json = false;
};

VNValue jsonMapping(const VNValue& record) {
  VNValue mapping = VNValue::dictionary();
  mapping.set("source", *record.findString(VNUDTTetherlinkSourceKey));
  mapping.set("destination", *record.findString(VNUDTTetherlinkDestinationKey));
  return mapping;
}

int runTetherlinks(const TetherlinksOptions& options) {
  struct stat status;
  if (::stat(options.volume.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    printError(VNError::posix(errno ? errno : ENOTDIR, options.volume, "open volume root"));
    return kExitFailed;
  }
  for (const std::string& problem : VNTetherlinkDefinitionProblems(options.volume))
    std::fprintf(stderr, "varnel: skipped: %s\n", quotedName(problem).c_str());
  VNValue::Array records = VNUDataTemplateUtilities::parseTetherlinkManifestForVolume(
      VNFileURL::fileURLWithPath(options.volume, /*isDirectory=*/true), /*liveResolution=*/!options.noLive);
  if (options.json) {
    VNValue::Array mappings;
    for (const VNValue& record : records) mappings.push_back(jsonMapping(record));
    printJSON(VNValue(std::move(mappings)));
    return kExitOK;
  }
  for (const VNValue& record : records)
    std::printf("%s -> %s\n", quotedName(*record.findString(VNUDTTetherlinkSourceKey)).c_str(),
                quotedName(*record.findString(VNUDTTetherlinkDestinationKey)).c_str());
  return kExitOK;
}

CommandRegistration registration("tetherlinks", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand(
      "tetherlinks", "List the folders of a volume that appear inside its partner volume (bind mounts)");
  auto options = std::make_shared<TetherlinksOptions>();
  command->add_option("VOLUME", options->volume, "Root folder of the volume")->required();
  command->add_flag("--no-live", options->noLive, "List the definitions as written, not the bind mounts now");
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runTetherlinks(*options); });
});

}  // namespace
}  // namespace varnel
