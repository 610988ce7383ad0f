// varnel install: populate a data volume from the data template of a system
// volume.
#include <cstdio>
#include <cstdlib>

#include "Command.h"
#include "ProgressBar.h"
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

// The template's totals, from the same analysis the installation runs first:
// they size the progress bar and fill the summary.
struct TemplateTotals {
  std::uint64_t items = 0, bytes = 0, cloned = 0, symlinked = 0;
};

TemplateTotals analyse(const VNFileURL& system) {
  auto copier = VNUDataTemplateCopier::initWithSystemURL(system);
  copier->setLogHandler([](VNUDataTemplateCopier&, const std::string&) {});
  copier->analyzeDataTemplate();
  return {copier->totalItems(), copier->totalBytes(), copier->totalDuplicateItems(),
          copier->totalSymlinkedItems()};
}

void printSummary(const InstallOptions& options, const TemplateTotals& totals, std::uint64_t items,
                  double seconds) {
  if (options.json) {
    VNValue summary = VNValue::dictionary();
    summary.set("systemRoot", options.system);
    summary.set("dataRoot", options.data);
    summary.set("items", items);
    summary.set("bytes", totals.bytes);
    summary.set("clonedItems", totals.cloned);
    summary.set("symlinkedItems", totals.symlinked);
    summary.set("seconds", seconds);
    printJSON(summary);
  } else if (!options.quiet) {
    std::printf("installed %llu items (%.2f MB), %llu cloned, %llu symlinked, in %.2f s\n",
                static_cast<unsigned long long>(items), totals.bytes / 1e6,
                static_cast<unsigned long long>(totals.cloned),
                static_cast<unsigned long long>(totals.symlinked), seconds);
  }
}

int runInstall(const InstallOptions& options) {
  // The library's log lines reach stderr as well as the journal.
  if (options.verbose) ::setenv("VARNEL_LOG_STDERR", "1", 1);
  const VNFileURL system = VNFileURL::fileURLWithPath(options.system, true);
  const VNFileURL data = VNFileURL::fileURLWithPath(options.data, true);
  TemplateTotals totals = analyse(system);
  ProgressBar bar(stderr, "items", options.quiet || options.json ? 0 : totals.items);
  std::uint64_t items = 0;
  VNError error;
  bool ok = VNUDataTemplateUtilities::copyDataTemplateWithSystemVolumePath(
      system, data, /*instantiateTetherlinks=*/true,
      [&](std::uint64_t done) {
        items = done;
        if (!options.quiet && !options.json) bar.update(done);
      },
      &error);
  if (!options.quiet && !options.json) bar.finish();
  if (!ok) {
    printError(error);
    return kExitFailed;
  }
  printSummary(options, totals, items, bar.elapsedSeconds());
  return kExitOK;
}

CommandRegistration registration("install", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand(
      "install", "Populate a data volume from the data template of its system volume");
  auto options = std::make_shared<InstallOptions>();
  command->add_option("--system", options->system, "Root of the system volume")->required()->check(CLI::ExistingDirectory);
  command->add_option("--data", options->data, "Root of the data volume")->required()->check(CLI::ExistingDirectory);
  command->add_flag("--json", options->json, "Print the summary as JSON");
  command->add_flag("--quiet", options->quiet, "Print nothing but errors");
  command->add_flag("--verbose", options->verbose, "Show the library's log lines on stderr");
  command->callback([options, &status] { status = runInstall(*options); });
});

}  // namespace
}  // namespace varnel
