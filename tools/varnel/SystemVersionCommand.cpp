// varnel system version: the product version and build of a system root.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "Command.h"
#include "SystemView.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "datatemplate/internal/VNDataTemplateLocations.h"
#include "datatemplate/VNUVersion.h"
#include "foundation/VNError.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct VersionOptions {
  std::string root;
  bool json = false;
};

VNValue versionSummary(const VNUVersion& version) {
  VNValue summary = VNValue::dictionary();
  summary.set("productVersion", version.versionString() ? VNValue(*version.versionString()) : VNValue());
  summary.set("buildVersion", version.buildNumber() ? VNValue(*version.buildNumber()) : VNValue());
  summary.set("major", version.versionMajor());
  summary.set("minor", version.versionMinor());
  summary.set("patch", version.versionPatch());
  return summary;
}

void printText(const VNUVersion& version) {
  std::printf("product version: %s\n", version.versionString() ? quotedName(*version.versionString()).c_str() : "(none)");
  std::printf("build version:   %s\n", version.buildNumber() ? quotedName(*version.buildNumber()).c_str() : "(none)");
  std::printf("major.minor.patch: %lld.%lld.%lld\n", static_cast<long long>(version.versionMajor()),
              static_cast<long long>(version.versionMinor()), static_cast<long long>(version.versionPatch()));
}

int runVersion(const VersionOptions& options) {
  struct stat status;
  if (::stat(options.root.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    printError(VNError::posix(errno ? errno : ENOTDIR, options.root, "open system root"));
    return kExitFailed;
  }
  auto version = VNUDataTemplateUtilities::systemVersionForMountPoint(
      VNFileURL::fileURLWithPath(options.root, /*isDirectory=*/true));
  if (!version) {
    std::string file = options.root + (options.root.ends_with('/') ? "" : "/") + VNDataTemplateLocations::kSystemVersionFile;
    std::fprintf(stderr, "varnel: no readable version file (a property-list dictionary) at %s\n",
                 quotedName(file).c_str());
    return kExitFailed;
  }
  if (options.json)
    printJSON(versionSummary(*version));
  else
    printText(*version);
  return kExitOK;
}

CommandRegistration registration("system version", [](CLI::App& app, int& status) {
  auto* command = systemCommand(app)->add_subcommand("version", "Show the product version and build of a system");
  auto options = std::make_shared<VersionOptions>();
  command->add_option("ROOT", options->root, "Root folder of the system")->required();
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runVersion(*options); });
});

}  // namespace
}  // namespace varnel
