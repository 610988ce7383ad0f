// The order of versions, in pairs compared per second, and the bundle
// information of 10,000 generated application bundles beside reading their
// information dictionaries with libplist alone, warm, in the same run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bundles/VNBundleInformation.h"
#include "foundation/VNValue.h"
#include "platform/VNComponentVersion.h"

namespace {

constexpr int kBundles = 10000;

// An information dictionary as applications carry them: a dozen entries.
std::string infoText(int i) {
  std::string n = std::to_string(i);
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
         "\t<key>QFBundleIdentifier</key><string>org.example.app" + n + "</string>\n"
         "\t<key>QFBundleName</key><string>Application " + n + "</string>\n"
         "\t<key>QFBundleExecutable</key><string>app" + n + "</string>\n"
         "\t<key>QFBundleShortVersionString</key><string>" + std::to_string(i % 17) + "." + std::to_string(i % 5) + "." + std::to_string(i % 3) + "</string>\n"
         "\t<key>QFBundleVersion</key><string>" + std::to_string(1000 + i) + "</string>\n"
         "\t<key>QFBundlePackageType</key><string>APPL</string>\n"
         "\t<key>QFBundleInfoDictionaryVersion</key><string>6.0</string>\n"
         "\t<key>QFBundleDevelopmentRegion</key><string>en</string>\n"
         "\t<key>VarnelSourceVersion</key><string>" + std::to_string(400 + i % 90) + ".1.2</string>\n"
         "\t<key>VarnelBuildVersion</key><string>" + std::to_string(i % 40) + "</string>\n"
         "\t<key>LSMinimumSystemVersion</key><string>11.0</string>\n"
         "\t<key>QFBundleSupportedPlatforms</key><array><string>x86_64</string><string>arm64</string></array>\n"
         "</dict>\n</plist>\n";
}

struct Bundles {
  std::string folder;
  std::vector<std::string> paths;
  Bundles() {
    char name[] = "/var/tmp/varnel-bench-bundles.XXXXXX";
    folder = ::mkdtemp(name);
    for (int i = 0; i < kBundles; ++i) {
      std::string path = folder + "/App" + std::to_string(i) + ".app";
      std::filesystem::create_directories(path + "/Contents");
      if (i % 10 == 0) std::filesystem::create_directories(path + "/Contents/_EmporiaReceipt");
      int fd = ::open((path + "/Contents/Info.plist").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      std::string text = infoText(i);
      if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
      ::close(fd);
      paths.push_back(path);
    }
  }
  ~Bundles() { std::filesystem::remove_all(folder); }
};

const Bundles& bundles() {
  static Bundles made;
  return made;
}

// The baseline: read each "Contents/Info.plist" and parse it with libplist.
void BM_LibplistAlone(benchmark::State& state) {
  const Bundles& all = bundles();
  for (auto _ : state) {
    for (const std::string& path : all.paths) {
      int fd = ::open((path + "/Contents/Info.plist").c_str(), O_RDONLY | O_CLOEXEC);
      char buffer[8192];
      ssize_t size = ::read(fd, buffer, sizeof buffer);
      ::close(fd);
      plist_t root = nullptr;
      plist_from_memory(buffer, static_cast<uint32_t>(size), &root);
      benchmark::DoNotOptimize(root);
      plist_free(root);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBundles);
}
BENCHMARK(BM_LibplistAlone)->Unit(benchmark::kMillisecond);

void BM_BundleInformation(benchmark::State& state) {
  const Bundles& all = bundles();
  for (auto _ : state)
    for (const std::string& path : all.paths)
      benchmark::DoNotOptimize(VNUtilities::VN_bundleInformationAtPath(VNFileURL::fileURLWithPath(path)));
  state.SetItemsProcessed(state.iterations() * kBundles);
}
BENCHMARK(BM_BundleInformation)->Unit(benchmark::kMillisecond);

// Pairs of typical versions, each field present, most deciding late.
void BM_CompareComponentVersions(benchmark::State& state) {
  std::vector<VNComponentVersion> versions;
  for (int i = 0; i < 1024; ++i)
    versions.push_back({std::to_string(10 + i % 3) + "." + std::to_string(i % 7) + "." + std::to_string(i % 2),
                        std::to_string(1200 + i % 5), std::to_string(600 + i % 4) + ".1.3",
                        i % 9 ? "21A" + std::to_string(300 + i % 6) : "21A300b", true});
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(VNCompareComponentVersions(versions[i & 1023], versions[(i * 7 + 3) & 1023]));
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CompareComponentVersions);

}  // namespace

BENCHMARK_MAIN();
