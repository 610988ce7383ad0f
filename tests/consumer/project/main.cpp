// A program built outside the source tree against an installed VarnelUtils.
// It calls into each subsystem once, so that a header missing from the
// installation, a symbol left hidden or a wrong soname fails to build or run.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "bundles/VNBundleVersionComparison.h"
#include "common/VNStringUtilities.h"
#include "datatemplate/VNBomStore.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNVersion.h"
#include "host/VNAnalyticsFieldConverter.h"
#include "platform/VNChildProcess.h"
#include "platform/VNComponentVersion.h"
#include "process/VNTask.h"
#include "sizing/VNPathSizer.h"
#include "systemview/VNSystem_FileManagerProtocol.h"

namespace {

int failures = 0;

void expect(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "consumer: %s failed\n", what);
    ++failures;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: consumer SCRATCH_FOLDER\n");
    return 2;
  }
  const std::string root = std::string(argv[1]) + "/tree";
  std::filesystem::create_directories(root);
  std::ofstream(root + "/file") << "twelve bytes";

  expect(VarnelUtilsVersionNumber >= 1.0, "foundation: VarnelUtilsVersionNumber");
  expect(VNUtilities::VN_hasPrefix("varnel", "var"), "common: VN_hasPrefix");
  expect(VNCompareVersionStrings("1.10", "1.9") > 0, "platform: VNCompareVersionStrings");
  const auto marker = VNLeftoverMarkerURL(VNFileURL::fileURLWithPath("/Apps/Name.app"));
  expect(marker && marker->path() == "/Apps/Name.app.incompleteMigration",
         "bundles: VNLeftoverMarkerURL");
  expect(VNFileURLOrder{}(VNFileURL::fileURLWithPath("/a"), VNFileURL::fileURLWithPath("/b")),
         "systemview: VNFileURLOrder");

  expect(VNAnalyticsFieldConverter::valueForRPPHYMode(1) == "3",
         "host: VNAnalyticsFieldConverter::valueForRPPHYMode");
  // Through the installed launcher: the runner finds drop_ward beside the
  // installed library, or holds no program.
  auto child = VNChildProcess::create();
  child->setLaunchPath("/bin/true");
  auto runner = VNTask::initWithTask(child, /*allowWARD=*/false);
  expect(runner->task() != nullptr && runner->run(), "process: VNTask runs /bin/true through drop_ward");

  std::uint64_t count = 0;
  VNPathSizer::init()->directorySizeAndCount(&count, VNFileURL::fileURLWithPath(root, true));
  expect(count == 1, "sizing: VNPathSizer counts the one file");

  const std::string bomPath = std::string(argv[1]) + "/tree.bom";
  BomStore* store = bom_new_from_directory(bomPath.c_str(), root.c_str(), 0);
  expect(store != nullptr && bom_commit(store) == 0, "datatemplate: bom_new_from_directory");
  bom_free(store);
  BomStore* reopened = bom_open(bomPath.c_str());
  BomEntry* entry = reopened ? bom_entry_at_path(reopened, "file") : nullptr;
  expect(entry != nullptr, "datatemplate: bom_entry_at_path finds the file");
  bom_entry_free(entry);
  bom_free(reopened);

  std::printf("consumer: %s\n", failures == 0 ? "ok" : "FAILED");
  return failures == 0 ? 0 : 1;
}
