// Cost of one VNLogging message on the real Linux services: a debug message
// whose level is off (the common case during long copies), and an ordinary
// message in the base system, which also appends a line to the log file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "common/VNLogging.h"
#include "common/internal/VNLoggingState.h"
#include "platform/VNBaseSystem.h"
#include "platform/VNLogFileLocation.h"
#include "platform/VNPlatformService.h"

namespace {

class TemporaryLogFile final : public VNLogFileLocation {
 public:
  explicit TemporaryLogFile(std::string path) : path_(std::move(path)) {}
  std::string migrationLogPath() override { return path_; }

 private:
  std::string path_;
};

// A folder holding the base-system marker and the log file, removed after.
struct Scratch {
  std::string dir = [] {
    char name[] = "/tmp/varnel-bench.XXXXXX";
    if (!::mkdtemp(name)) std::abort();
    return std::string(name);
  }();
  std::string marker = dir + "/initrd-release";
  std::string logFile = dir + "/migration.log";
  ~Scratch() {
    ::unlink(marker.c_str());
    ::unlink(logFile.c_str());
    ::rmdir(dir.c_str());
  }
};

void runMessages(benchmark::State& state, VNLogType type, bool inBaseSystem) {
  Scratch scratch;
  if (inBaseSystem) ::close(::open(scratch.marker.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
  ::unsetenv("VARNEL_LOG_DEBUG");
  VNPlatformOverride<VNBaseSystem> base(VNBaseSystem::makeWithMarker(scratch.marker));
  VNPlatformOverride<VNLogFileLocation> location(std::make_shared<TemporaryLogFile>(scratch.logFile));
  VNLoggingInternal::resetProcessState();
  const std::string message = "copied 3 items from the data template";
  for (auto _ : state) VNLogging::logType(type, "bench", __LINE__, message);
  VNLoggingInternal::resetProcessState();
}

void BM_DisabledDebugMessage(benchmark::State& state) {
  runMessages(state, VNLogTypeDebug, /*inBaseSystem=*/false);
}
BENCHMARK(BM_DisabledDebugMessage);

void BM_BaseSystemFileLine(benchmark::State& state) {
  runMessages(state, VNLogTypeDefault, /*inBaseSystem=*/true);
}
BENCHMARK(BM_BaseSystemFileLine);

}  // namespace

BENCHMARK_MAIN();
