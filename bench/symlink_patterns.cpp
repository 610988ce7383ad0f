// Cost of deciding whether a template path is symlinked, against manifests of
// growing size: the plain list (one fnmatch per pattern) and the indexed set
// the copier uses. The manifest holds exact paths and "folder/**" patterns,
// as real ones mostly do, plus a few wildcard patterns that always need
// fnmatch.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "datatemplate/internal/VNSymlinkPatterns.h"

namespace {

std::vector<std::string> manifest(std::int64_t count) {
  std::vector<std::string> patterns = {"Users/*/Library/Caches/**", "private/var/db/*.db", "Library/Logs/*/old"};
  for (std::int64_t i = 0; i < count; ++i)
    patterns.push_back("Library/Item" + std::to_string(i) + (i % 2 ? "/**" : "/file"));
  return patterns;
}

// Paths a walk meets: most match nothing.
const std::vector<std::string>& paths() {
  static const std::vector<std::string> walked = [] {
    std::vector<std::string> list;
    for (int i = 0; i < 64; ++i) list.push_back("Library/Other" + std::to_string(i) + "/deeper/file");
    list.push_back("Library/Item7/inside/file");
    list.push_back("Users/alice/Library/Caches/x");
    return list;
  }();
  return walked;
}

void BM_MatchList(benchmark::State& state) {
  std::vector<std::string> patterns = manifest(state.range(0));
  for (auto _ : state)
    for (const std::string& path : paths()) benchmark::DoNotOptimize(VNMatchesSymlinkPattern(patterns, path.c_str()));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths().size()));
}

void BM_MatchSet(benchmark::State& state) {
  VNSymlinkPatternSet patterns(manifest(state.range(0)));
  for (auto _ : state)
    for (const std::string& path : paths()) benchmark::DoNotOptimize(patterns.matches(path.c_str()));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths().size()));
}

}  // namespace

BENCHMARK(BM_MatchList)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(BM_MatchSet)->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK_MAIN();
