// varnel install: populate a data volume from the data template of a system
// volume.
#include <cstdio>
#include <cstdlib>

#include "Command.h"
#include "ProgressBar.h"
#include "common/VNLogging.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/VNUDataTemplateUtilities.h"
#include "foundation/VNError.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct InstallOptions {
  std::string system;
  std::string data;
  bool json = false;
  bool quiet = false;
  bool verbose = false;
};

void printSummary(const InstallOptions& options, const VNUDataTemplateCopier::CopyCounts& laidDown,
                  double seconds) {
  if (options.json) {
    VNValue summary = VNValue::dictionary();
    summary.set("systemRoot", options.system);
    summary.set("dataRoot", options.data);
    summary.set("items", laidDown.items);
    summary.set("bytes", laidDown.bytes);
    summary.set("clonedItems", laidDown.clonedItems);
    summary.set("symlinkedItems", laidDown.symlinkedItems);
    summary.set("seconds", seconds);
    printJSON(summary);
  } else if (!options.quiet) {
    std::printf("installed %llu items (%.2f MB), %llu cloned, %llu symlinked, in %.2f s\n",
                static_cast<unsigned long long>(laidDown.items), laidDown.bytes / 1e6,
                static_cast<unsigned long long>(laidDown.clonedItems),
                static_cast<unsigned long long>(laidDown.symlinkedItems), seconds);
  }
}

int runInstall(const InstallOptions& options) {
  // The library's log lines reach stderr as well as the journal.
  if (options.verbose) ::setenv("VARNEL_LOG_STDERR", "1", 1);
  auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath(options.system, true));
  copier->setLogHandler([](VNUDataTemplateCopier&, const std::string& message) {
    VNLogging::logType(VNLogTypeDefault, "varnel install", __LINE__, message);
  });
  // One analysis sizes the bar; the installation does not repeat it. The
  // summary counts what the copy laid down, which needs no template BOM.
  const bool showBar = !options.quiet && !options.json;
  copier->analyzeDataTemplate();
  ProgressBar bar(stderr, "items", showBar ? copier->totalItems() : 0);
  if (showBar)
    copier->setProgressHandler([&](VNUDataTemplateCopier&, std::uint64_t done, std::uint64_t) { bar.update(done); });
  VNError error;
  bool ok = VNUDataTemplateUtilities::copyDataTemplateWithCopier(
      *copier, VNFileURL::fileURLWithPath(options.data, true), &error);
  if (showBar) bar.finish();
  if (!ok) {
    printError(error);
    return kExitFailed;
  }
  printSummary(options, copier->lastCopyCounts(), bar.elapsedSeconds());
  return kExitOK;
}

CommandRegistration registration("install", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand(
      "install", "Populate a data volume from the data template of its system volume");
  auto options = std::make_shared<InstallOptions>();
  command->add_option("--system", options->system, "Root of the system volume")->required()->check(kExistingFolder);
  command->add_option("--data", options->data, "Root of the data volume")->required()->check(kExistingFolder);
  command->add_flag("--json", options->json, "Print the summary as JSON");
  command->add_flag("--quiet", options->quiet, "Print nothing but errors");
  command->add_flag("--verbose", options->verbose, "Show the library's log lines on stderr");
  command->callback([options, &status] { status = runInstall(*options); });
});

}  // namespace
}  // namespace varnel
