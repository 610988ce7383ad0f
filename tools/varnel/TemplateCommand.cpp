// varnel template analyze: sizes a system's data template as an installation
// would before copying it, and shows the symlink patterns it would apply.
#include <sys/stat.h>

#include <cstdio>

#include "Command.h"
#include "datatemplate/VNUDataTemplateCopier.h"
#include "foundation/VNError.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct AnalyzeOptions {
  std::string systemRoot;
  bool json = false;
  bool verbose = false;
};

VNValue patternArray(const std::shared_ptr<const VNUDataTemplateCopier::PatternList>& patterns) {
  VNValue::Array array;
  if (patterns) array.assign(patterns->begin(), patterns->end());
  return VNValue(std::move(array));
}

VNValue analysisSummary(VNUDataTemplateCopier& copier) {
  VNValue summary = VNValue::dictionary();
  summary.set("dataTemplate", copier.dataTemplateURL().path());
  summary.set("items", copier.totalItems());
  summary.set("bytes", copier.totalBytes());
  summary.set("duplicateItems", copier.totalDuplicateItems());
  summary.set("symlinkedItems", copier.totalSymlinkedItems());
  summary.set("usedBOM", copier.hasDataTemplateBOM());
  summary.set("symlinkedFilePatterns", patternArray(copier.symlinkedFilePatterns()));
  summary.set("symlinkedDirectoryPatterns", patternArray(copier.symlinkedDirectoryPatterns()));
  return summary;
}

void printPatterns(const char* title, const VNValue& patterns) {
  std::printf("%s:%s\n", title, patterns.asArray()->empty() ? " none" : "");
  for (const VNValue& pattern : *patterns.asArray()) std::printf("  %s\n", pattern.asString()->c_str());
}

void printText(const VNValue& summary) {
  auto number = [&](const char* key) {
    return static_cast<unsigned long long>(summary.find(key)->asInteger().value_or(0));
  };
  std::printf("data template:      %s\n", summary.findString("dataTemplate")->c_str());
  std::printf("items:              %llu\n", number("items"));
  std::printf("bytes:              %llu (%.2f MB)\n", number("bytes"), number("bytes") / 1e6);
  std::printf("duplicate items:    %llu\n", number("duplicateItems"));
  std::printf("symlinked items:    %llu\n", number("symlinkedItems"));
  std::printf("sized from its BOM: %s\n", *summary.find("usedBOM")->asBoolean() ? "yes" : "no");
  printPatterns("symlinked file patterns", *summary.find("symlinkedFilePatterns"));
  printPatterns("symlinked directory patterns", *summary.find("symlinkedDirectoryPatterns"));
}

int runAnalyze(const AnalyzeOptions& options) {
  struct stat status;
  if (::stat(options.systemRoot.c_str(), &status) != 0) {
    printError(VNError::posix(errno, options.systemRoot, "open system root"));
    return kExitFailed;
  }
  if (!S_ISDIR(status.st_mode)) {
    printError(VNError::posix(ENOTDIR, options.systemRoot, "open system root"));
    return kExitFailed;
  }
  auto copier = VNUDataTemplateCopier::initWithSystemURL(
      VNFileURL::fileURLWithPath(options.systemRoot, /*isDirectory=*/true));
  bool verbose = options.verbose;
  copier->setLogHandler([verbose](VNUDataTemplateCopier&, const std::string& message) {
    if (verbose) std::fprintf(stderr, "%s\n", message.c_str());
  });
  copier->analyzeDataTemplate();
  VNValue summary = analysisSummary(*copier);
  if (options.json)
    printJSON(summary);
  else
    printText(summary);
  return kExitOK;
}

CommandRegistration registration("template analyze", [](CLI::App& app, int& status) {
  auto* command = templateCommand(app)->add_subcommand(
      "analyze", "Size a system's data template and list its symlink patterns");
  auto options = std::make_shared<AnalyzeOptions>();
  command->add_option("SYSTEM_ROOT", options->systemRoot, "Root folder of the system")->required();
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->add_flag("-v,--verbose", options->verbose, "Print the analysis log on stderr");
  command->callback([options, &status] { status = runAnalyze(*options); });
});

}  // namespace

CLI::App* templateCommand(CLI::App& app) {
  return commandGroup(app, "template", "Work with the data template of a system");
}

}  // namespace varnel
