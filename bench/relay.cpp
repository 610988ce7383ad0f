// Relaying a program's output: a program writes 100 MB in lines of 80 bytes
// (cat of a prepared file). The runner, with a log that takes and discards
// every line, against cat copying the same lines through a pipe to
// /dev/null. Both include the writer's own cost; compare bytes per second.
//   build/bench/bench_relay --benchmark_repetitions=3
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "common/internal/VNLoggingState.h"
#include "platform/VNBaseSystem.h"
#include "platform/VNPlatformService.h"
#include "platform/VNSystemLog.h"
#include "process/VNTask.h"

namespace {

constexpr size_t kTotalBytes = 100'000'000;
constexpr size_t kLineBytes = 80;

class DiscardingLog final : public VNSystemLog {
 public:
  bool isLevelEnabled(Level, std::string_view, std::string_view) override { return true; }
  void log(Level, std::string_view, std::string_view, std::string_view text) override {
    benchmark::DoNotOptimize(text.data());
  }
  void syslog(int, std::string_view) override {}
};

class NotBaseSystem final : public VNBaseSystem {
 public:
  bool isBaseSystem(std::string_view) override { return false; }
};

// 100 MB of 80-byte lines in a temporary file, removed at exit.
const std::string& linesFile() {
  static const std::string path = [] {
    char name[] = "/tmp/varnel-relay.XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd < 0) std::abort();
    std::string line(kLineBytes - 1, 'x');
    line += '\n';
    std::string block;
    for (int i = 0; i < 1000; ++i) block += line;
    for (size_t written = 0; written < kTotalBytes; written += block.size())
      if (::write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size())) std::abort();
    ::close(fd);
    std::atexit([] { ::unlink(linesFile().c_str()); });
    return std::string(name);
  }();
  return path;
}

std::shared_ptr<VNChildProcess> shell(const std::string& script) {
  auto child = VNChildProcess::create();
  child->setLaunchPath("/bin/sh");
  child->setArguments({"-c", script});
  return child;
}

void BM_CatThroughPipe(benchmark::State& state) {
  const std::string script = "cat " + linesFile() + " | cat > /dev/null";
  for (auto _ : state)
    if (std::system(script.c_str()) != 0) state.SkipWithError("cat failed");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotalBytes));
}

void BM_RunnerRelay(benchmark::State& state) {
  VNPlatformOverride<VNSystemLog> log(std::make_shared<DiscardingLog>());
  VNPlatformOverride<VNBaseSystem> base(std::make_shared<NotBaseSystem>());
  VNLoggingInternal::resetProcessState();
  const std::string script = "cat " + linesFile();
  for (auto _ : state) {
    auto runner = VNTask::initWithTask(shell(script), /*allowWARD=*/true);
    if (!runner->run()) state.SkipWithError("runner failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotalBytes));
  VNLoggingInternal::resetProcessState();
}

BENCHMARK(BM_CatThroughPipe)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_RunnerRelay)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
