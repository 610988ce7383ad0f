// Finding the volume of a path and its partner on a btrfs file system with
// 1,000 subvolumes (500 pairs), warm. Needs root; made on a loop image.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/VNPlatformService.h"
#include "platform/VNStorageService.h"
#include "platform/internal/VNVolumeAttributes.h"
#include "systemview/VNVolumePairing.h"

namespace {

constexpr int kPairs = 500;

struct Container {
  std::string folder, mount;
  Container() {
    char name[] = "/var/tmp/varnel-bench-volumes.XXXXXX";
    folder = ::mkdtemp(name);
    mount = folder + "/mnt";
    std::string script = "set -e; cd " + folder + "; truncate -s 1G image; mkfs.btrfs -q image >/dev/null; "
                         "mkdir mnt; mount -o loop image mnt; cd mnt; for i in $(seq 1 " +
                         std::to_string(kPairs) + "); do btrfs -q subvolume create s$i; btrfs -q subvolume create d$i; done";
    if (std::system(script.c_str()) != 0) std::abort();
    for (int i = 1; i <= kPairs; ++i) {
      char group[37];
      std::snprintf(group, sizeof group, "00000000-0000-4000-8000-%012d", i);
      for (const char* role : {"system", "data"}) {
        std::string path = mount + "/" + (role[0] == 's' ? "s" : "d") + std::to_string(i);
        int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
        VNWriteVolumeAttributes(fd, role, group);
        ::close(fd);
      }
    }
  }
  ~Container() { std::system(("umount " + mount + "; rm -rf " + folder).c_str()); }
};

Container& container() {
  static Container instance;
  return instance;
}

void BM_Volume(benchmark::State& state) {
  auto service = VNPlatformSlot<VNStorageService>::get();
  std::string path = container().mount + "/d" + std::to_string(kPairs);
  for (auto _ : state) benchmark::DoNotOptimize(service->volumeForPath(path));
}
BENCHMARK(BM_Volume)->Unit(benchmark::kMillisecond);

void BM_Container(benchmark::State& state) {
  auto service = VNPlatformSlot<VNStorageService>::get();
  VNStorageVolumeRef volume = service->volumeForPath(container().mount + "/d1");
  for (auto _ : state) benchmark::DoNotOptimize(service->containerVolumes(*volume));
}
BENCHMARK(BM_Container)->Unit(benchmark::kMillisecond);

void BM_VolumeAndPartner(benchmark::State& state) {
  Container& container = ::container();
  auto service = VNPlatformSlot<VNStorageService>::get();
  std::string path = container.mount + "/d" + std::to_string(kPairs);
  for (auto _ : state) {
    VNStorageVolumeRef volume = service->volumeForPath(path);
    VNStorageVolumeRef partner = getPairedVolumeWithRole(volume, "system");
    if (!partner) state.SkipWithError("no partner found");
    benchmark::DoNotOptimize(partner);
  }
}
BENCHMARK(BM_VolumeAndPartner)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
