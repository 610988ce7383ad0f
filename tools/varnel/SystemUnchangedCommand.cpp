// varnel system unchanged: which files the data template laid down on a
// target system are still as it laid them down, checksummed in parallel.
#include <algorithm>
#include <cstdio>
#include <thread>

#include <fmt/format.h>

#include "Command.h"
#include "SystemView.h"
#include "datatemplate/VNBomStore.h"
#include "foundation/VNValue.h"
#include "foundation/VNWorkPool.h"

namespace varnel {
namespace {

struct UnchangedOptions {
  std::string root;
  std::vector<std::string> templatePaths;
  bool json = false;
};

enum class FileState { Unchanged, Changed, Missing };

struct TemplateFile {
  std::string relativePath;  // as the receipt names it, "./Users/..."
  std::uint32_t recorded = 0;
  std::string location;      // where it lies on the target now
  FileState state = FileState::Missing;
};

// A batch of files checksummed on one worker: one task per file would spend
// more on hand-offs than on small files.
struct ChecksumBatch {
  std::vector<TemplateFile> files;
  void run() {
    for (TemplateFile& file : files) {
      std::uint32_t checksum = 0;
      std::uint64_t length = 0;
      if (file.location.empty() || bom_crc32_for_file(file.location.c_str(), &checksum, &length) != 0)
        file.state = FileState::Missing;
      else
        file.state = checksum == file.recorded ? FileState::Unchanged : FileState::Changed;
    }
  }
};

constexpr std::size_t kBatchSize = 64;

std::string targetPathOf(const std::string& relativePath) {
  std::string_view path = relativePath;
  while (path.starts_with("./")) path.remove_prefix(2);
  return "/" + std::string(path);
}

std::vector<TemplateFile> checkFiles(VNSystem_FileManager_DiskBased& view, const VNTemplateReceipt& receipt,
                                     const std::vector<std::string>& templatePaths) {
  VNWorkPool<ChecksumBatch> pool(std::max(1u, std::thread::hardware_concurrency()), 64);
  std::vector<TemplateFile> checked;
  auto batch = std::make_unique<ChecksumBatch>();
  auto collect = [&](std::unique_ptr<ChecksumBatch> done) {
    for (TemplateFile& file : done->files) checked.push_back(std::move(file));
  };
  auto add = [&](const std::string& relativePath, std::uint32_t recorded) {
    std::optional<VNFileURL> location = view.pathToRemoteFile(VNFileURL::fileURLWithPath(targetPathOf(relativePath), false), nullptr, true);
    batch->files.push_back({relativePath, recorded, location ? location->path() : std::string(), FileState::Missing});
    if (batch->files.size() < kBatchSize) return;
    pool.submit(std::exchange(batch, std::make_unique<ChecksumBatch>()));
    while (auto done = pool.takeFinished()) collect(std::move(done));
  };
  for (const std::string& path : templatePaths) receipt.forEachFileChecksum(path, add);
  pool.submit(std::move(batch));
  while (auto done = pool.waitFinished()) collect(std::move(done));
  std::sort(checked.begin(), checked.end(),
            [](const TemplateFile& a, const TemplateFile& b) { return a.relativePath < b.relativePath; });
  checked.erase(std::unique(checked.begin(), checked.end(),
                            [](const TemplateFile& a, const TemplateFile& b) { return a.relativePath == b.relativePath; }),
                checked.end());
  return checked;
}

const char* stateName(FileState state) {
  switch (state) {
    case FileState::Unchanged: return "unchanged";
    case FileState::Changed: return "changed";
    case FileState::Missing: return "missing";
  }
  return "missing";
}

void report(const std::vector<TemplateFile>& files, bool json) {
  VNValue lists = VNValue::dictionary();
  std::map<FileState, VNValue::Array> byState;
  for (const TemplateFile& file : files) byState[file.state].push_back(VNValue(targetPathOf(file.relativePath)));
  for (FileState state : {FileState::Unchanged, FileState::Changed, FileState::Missing}) {
    VNValue::Array& list = byState[state];
    if (!json) {
      for (const VNValue& path : list) std::printf("%-9s %s\n", stateName(state), quotedName(*path.asString()).c_str());
    }
    lists.set(std::string(stateName(state)) + "Count", static_cast<std::int64_t>(list.size()));
    lists.set(stateName(state), VNValue(std::move(list)));
  }
  if (json) {
    printJSON(lists);
    return;
  }
  std::printf("%s unchanged, %s changed, %s missing\n",
              fmt::format("{}", fmt::group_digits(*lists.find("unchangedCount")->asInteger())).c_str(),
              fmt::format("{}", fmt::group_digits(*lists.find("changedCount")->asInteger())).c_str(),
              fmt::format("{}", fmt::group_digits(*lists.find("missingCount")->asInteger())).c_str());
}

int runUnchanged(const UnchangedOptions& options) {
  auto view = openSystemView(options.root);
  if (!view) return kExitFailed;
  const VNTemplateReceipt* receipt = view->templateReceipt();
  if (!receipt) {
    std::fprintf(stderr, "varnel: no readable data-template receipt on the system at %s\n",
                 quotedName(options.root).c_str());
    return kExitFailed;
  }
  std::vector<std::string> templatePaths = options.templatePaths;
  if (templatePaths.empty()) templatePaths.push_back(".");
  report(checkFiles(*view, *receipt, templatePaths), options.json);
  return kExitOK;
}

CommandRegistration registration("system unchanged", [](CLI::App& app, int& status) {
  auto* command = systemCommand(app)->add_subcommand(
      "unchanged", "List the data template's files on a target that are still as it laid them down, and those changed");
  auto options = std::make_shared<UnchangedOptions>();
  command->add_option("ROOT", options->root, "Root folder of the target system")->required();
  command->add_option("--template-relative", options->templatePaths,
                      "Only files at or below these paths, relative to the data template's root");
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([options, &status] { status = runUnchanged(*options); });
});

}  // namespace
}  // namespace varnel
