// BOM store on a generated tree of 100,000 entries (directories, files of
// mixed sizes, symbolic links, hard-link groups): create with checksums and
// commit, open, walk, random path lookups, and for scale `cat` of every
// regular file to /dev/null with the page cache warm.
//
//   build/bench/bench_bom [--benchmark_filter=...]
// The tree goes to $VARNEL_BENCH_DIR (default /tmp) and is removed at exit.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "datatemplate/VNBomStore.h"

namespace {

namespace fs = std::filesystem;

constexpr int kTopDirectories = 50;
constexpr int kSubdirectories = 20;
constexpr int kItemsPerSubdirectory = 98;  // 50 * 20 * 98 + 1,050 directories + root = 99,051

// Sizes: three quarters under 1 KiB, most of the rest under 8 KiB, a few up
// to 64 KiB.
size_t pickSize(std::mt19937& random) {
  unsigned roll = random() % 100;
  if (roll < 75) return random() % 1024;
  if (roll < 97) return 1024 + random() % (7 * 1024);
  return 8192 + random() % (56 * 1024);
}

void writeFile(const std::string& path, size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>('a' + random() % 26);
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ::write(fd, bytes.data(), size) != static_cast<ssize_t>(size)) std::abort();
  ::close(fd);
}

// The generated tree, its BOM and every path in it.
struct Fixture {
  std::string base;
  std::string tree;
  std::string bom;
  std::vector<std::string> paths;

  Fixture() {
    const char* dir = std::getenv("VARNEL_BENCH_DIR");
    base = std::string(dir && *dir ? dir : "/tmp") + "/varnel-bench-bom.XXXXXX";
    if (!::mkdtemp(base.data())) std::abort();
    tree = base + "/tree";
    bom = base + "/tree.bom";
    generate();
    // Warm the page cache and write the BOM the read benchmarks use.
    std::system(catCommand().c_str());
    VNBomStorePtr store(bom_new_from_directory(bom.c_str(), tree.c_str(),
                                               BomOptionStat | BomOptionChecksums));
    if (!store || bom_commit(store.get()) != 0) std::abort();
  }
  ~Fixture() { fs::remove_all(base); }

  std::string catCommand() const {
    return "find '" + tree + "' -type f -print0 | xargs -0 cat > /dev/null";
  }

  void generate() {
    std::mt19937 random(2026);
    fs::create_directory(tree);
    std::vector<std::string> files;
    for (int t = 0; t < kTopDirectories; ++t) {
      std::string top = "d" + std::to_string(t);
      fs::create_directory(tree + "/" + top);
      paths.push_back(top);
      for (int s = 0; s < kSubdirectories; ++s) {
        std::string sub = top + "/s" + std::to_string(s);
        fs::create_directory(tree + "/" + sub);
        paths.push_back(sub);
        for (int i = 0; i < kItemsPerSubdirectory; ++i) {
          std::string path = sub + "/f" + std::to_string(i);
          unsigned kind = random() % 100;
          if (kind < 8) {
            fs::create_symlink("f0", tree + "/" + path);
          } else if (kind < 11 && !files.empty()) {
            fs::create_hard_link(tree + "/" + files[random() % files.size()], tree + "/" + path);
          } else {
            writeFile(tree + "/" + path, pickSize(random), random);
            files.push_back(path);
          }
          paths.push_back(path);
        }
      }
    }
  }
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

size_t walkAll(BomStore* store) {
  VNBomEntryPtr root(bom_root_entry(store));
  VNBomEnumeratorPtr walk(bom_enumerator_new(store, root.get()));
  size_t count = 1;
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) ++count;
  return count;
}

void BM_CatAllFiles(benchmark::State& state) {
  std::string command = fixture().catCommand();
  for (auto _ : state)
    if (std::system(command.c_str()) != 0) state.SkipWithError("cat failed");
}

void BM_CreateWithChecksumsAndCommit(benchmark::State& state) {
  const Fixture& f = fixture();
  std::string out = f.base + "/created.bom";
  for (auto _ : state) {
    VNBomStorePtr store(bom_new_from_directory(out.c_str(), f.tree.c_str(),
                                               BomOptionStat | BomOptionChecksums));
    if (!store || bom_commit(store.get()) != 0) state.SkipWithError("create failed");
  }
}

void BM_OpenAndWalk(benchmark::State& state) {
  const Fixture& f = fixture();
  size_t count = 0;
  for (auto _ : state) {
    VNBomStorePtr store(bom_open(f.bom.c_str()));
    count = walkAll(store.get());
  }
  state.counters["entries"] = static_cast<double>(count);
}

void BM_Open(benchmark::State& state) {
  const Fixture& f = fixture();
  for (auto _ : state) benchmark::DoNotOptimize(VNBomStorePtr(bom_open(f.bom.c_str())));
}

void BM_WalkOpenedStore(benchmark::State& state) {
  VNBomStorePtr store(bom_open(fixture().bom.c_str()));
  size_t count = 0;
  for (auto _ : state) count = walkAll(store.get());
  state.counters["entries"] = static_cast<double>(count);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * count));
}

void BM_RandomLookups(benchmark::State& state) {
  const Fixture& f = fixture();
  VNBomStorePtr store(bom_open(f.bom.c_str()));
  std::mt19937 random(5);
  std::vector<const char*> queries;
  for (int i = 0; i < 100000; ++i) queries.push_back(f.paths[random() % f.paths.size()].c_str());
  for (auto _ : state) {
    for (const char* path : queries) {
      VNBomEntryPtr entry(bom_entry_at_path(store.get(), path));
      if (!entry) state.SkipWithError("lookup failed");
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * queries.size()));
}

BENCHMARK(BM_CatAllFiles)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK(BM_CreateWithChecksumsAndCommit)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK(BM_OpenAndWalk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Open)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WalkOpenedStore)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RandomLookups)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
