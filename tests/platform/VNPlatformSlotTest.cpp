#include "support/VNTest.h"

namespace {

struct Service {
  static std::shared_ptr<Service> makeDefault() { return std::make_shared<Service>(); }
  int id = 0;
};

// Overrides nest and restore; readers on several threads while another
// swaps the service always see a whole one (the thread sanitizer checks the
// handover).
TEST(VNPlatformSlot, OverridesNestRestoreAndHandOverWhole) {
  auto original = VNPlatformSlot<Service>::get();
  auto first = std::make_shared<Service>(), second = std::make_shared<Service>();
  {
    VNPlatformOverride<Service> outer(first);
    {
      VNPlatformOverride<Service> inner(second);
      EXPECT_EQ(VNPlatformSlot<Service>::get(), second);
    }
    EXPECT_EQ(VNPlatformSlot<Service>::get(), first);
  }
  EXPECT_EQ(VNPlatformSlot<Service>::get(), original);
  std::atomic<bool> done{false};
  std::atomic<int> broken{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 3; ++t)
    readers.emplace_back([&] {
      while (!done.load()) {
        auto service = VNPlatformSlot<Service>::get();
        broken += !service || service->id < 0;
      }
    });
  for (int i = 0; i < 2000; ++i) {
    auto replacement = std::make_shared<Service>();
    replacement->id = i;
    VNPlatformOverride<Service> override(replacement);
  }
  done = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(broken.load(), 0);
}

}  // namespace
