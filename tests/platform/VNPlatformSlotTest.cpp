#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/VNPlatformService.h"

namespace {

// A service whose default counts how often it is made.
struct CountingService {
  static std::atomic<int> made;
  static std::shared_ptr<CountingService> makeDefault() {
    made.fetch_add(1);
    return std::make_shared<CountingService>();
  }
  int id = 0;
};
std::atomic<int> CountingService::made{0};

}  // namespace

TEST(VNPlatformSlot, OverridesNestAndRestore) {
  auto original = VNPlatformSlot<CountingService>::get();
  auto first = std::make_shared<CountingService>();
  {
    VNPlatformOverride<CountingService> outer(first);
    EXPECT_EQ(VNPlatformSlot<CountingService>::get(), first);
    {
      auto second = std::make_shared<CountingService>();
      VNPlatformOverride<CountingService> inner(second);
      EXPECT_EQ(VNPlatformSlot<CountingService>::get(), second);
    }
    EXPECT_EQ(VNPlatformSlot<CountingService>::get(), first);
  }
  EXPECT_EQ(VNPlatformSlot<CountingService>::get(), original);
}

// Readers on several threads while another swaps the service: every read
// sees a whole service (the thread sanitizer checks the handover).
TEST(VNPlatformSlot, ConcurrentReadersAndReplacementsSeeWholeServices) {
  std::atomic<bool> done{false};
  std::atomic<int> broken{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 3; ++t)
    readers.emplace_back([&] {
      while (!done.load()) {
        auto service = VNPlatformSlot<CountingService>::get();
        if (!service || service->id < 0) broken.fetch_add(1);
      }
    });
  for (int i = 0; i < 2000; ++i) {
    auto replacement = std::make_shared<CountingService>();
    replacement->id = i;
    VNPlatformOverride<CountingService> override(replacement);
  }
  done = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(broken.load(), 0);
}
