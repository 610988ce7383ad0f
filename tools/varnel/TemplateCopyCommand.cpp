// varnel template copy: the copy engine alone, laying a system's data
// template down in a folder and writing its receipts there.
#include <cstdio>
#include <cstdlib>

#include "Command.h"
#include "ProgressBar.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "foundation/VNError.h"
#include "foundation/VNFileURL.h"

namespace varnel {
namespace {

struct CopyOptions {
  std::string systemRoot;
  std::string target;
  bool verbose = false;
};

int runCopy(const CopyOptions& options) {
  auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath(options.systemRoot, true));
  copier->setLogHandler([verbose = options.verbose](VNUDataTemplateCopier&, const std::string& line) {
    if (verbose) std::fprintf(stderr, "%s\n", line.c_str());
  });
  copier->analyzeDataTemplate();
  ProgressBar bar(stderr, "items", copier->totalItems());
  VNError error;
  bool ok = copier->copyDataTemplateToURL(
      VNFileURL::fileURLWithPath(options.target, true), &error,
      [&](VNUDataTemplateCopier&, std::uint64_t items, std::uint64_t) { bar.update(items); });
  bar.finish();
  if (!ok) {
    printError(error);
    return kExitFailed;
  }
  return kExitOK;
}

CommandRegistration registration("template copy", [](CLI::App& app, int& status) {
  auto* command = templateCommand(app)->add_subcommand(
      "copy", "Lay a system's data template down in a folder, with its receipts");
  auto options = std::make_shared<CopyOptions>();
  command->add_option("SYSTEM_ROOT", options->systemRoot, "Root folder of the system")->required();
  command->add_option("TARGET", options->target, "Existing folder to copy into")
      ->required()->check(kExistingFolder);
  command->add_flag("-v,--verbose", options->verbose, "Print the copier's log on stderr");
  command->callback([options, &status] { status = runCopy(*options); });
});

}  // namespace
}  // namespace varnel
