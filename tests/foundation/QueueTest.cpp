#include <future>
#include <stdexcept>

#include "foundation/VNQueue.h"
#include "support/VNTest.h"

namespace {

const int kKey = 0;  // only its address matters

// Sync jobs wait for every async job queued before them and run on the
// caller's thread; async jobs run in order on one thread of the queue's.
TEST(VNQueue, KeepsOrderAcrossAsyncAndSync) {
  auto queue = VNQueue::create("org.varnel.test.order");
  std::vector<int> seen;  // touched only inside jobs: the queue serialises them
  std::thread::id workerThread, syncThread;
  for (int round = 0; round < 50; ++round) {
    for (int i = 0; i < 20; ++i)
      queue->async([&, value = round * 20 + i] {
        workerThread = std::this_thread::get_id();
        seen.push_back(value);
      });
    queue->sync([&] {
      ASSERT_EQ(seen.size(), size_t(round + 1) * 20);
      for (size_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], int(i));
    });
  }
  queue->sync([&] { syncThread = std::this_thread::get_id(); });
  EXPECT_EQ(syncThread, std::this_thread::get_id());
  EXPECT_NE(workerThread, std::this_thread::get_id());
}

// Many threads mixing sync and async jobs on one queue never overlap: a plain
// counter comes out exact, and the thread sanitizer sees no race on it.
TEST(VNQueue, SerialisesSyncFromManyThreads) {
  auto queue = VNQueue::create("org.varnel.test.many");
  long counter = 0;
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  auto job = [&] {
    if (inside.fetch_add(1) != 0) overlapped = true;
    ++counter;
    inside.fetch_sub(1);
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) (i + t) % 3 ? queue->sync(job) : queue->async(job);
    });
  for (auto& thread : threads) thread.join();
  long total = 0;
  queue->sync([&] { total = counter; });
  EXPECT_EQ(total, 8 * 500);
  EXPECT_FALSE(overlapped);
}

// A sync job's exception reaches the caller and frees the queue; dropping
// the last handle keeps queued jobs, which still run in order.
TEST(VNQueue, ExceptionsAndReleaseLeaveTheQueueWorking) {
  auto thrower = VNQueue::create("org.varnel.test.throw");
  EXPECT_THROW(thrower->sync([] { throw std::runtime_error("job failed"); }), std::runtime_error);
  bool ran = false;
  thrower->sync([&] { ran = true; });
  EXPECT_TRUE(ran);

  std::promise<std::vector<int>> result;
  {
    auto queue = VNQueue::create("org.varnel.test.release");
    auto seen = std::make_shared<std::vector<int>>();
    queue->async([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    for (int i = 0; i < 100; ++i) queue->async([seen, i] { seen->push_back(i); });
    queue->async([seen, &result] { result.set_value(*seen); });
  }
  std::vector<int> seen = result.get_future().get();
  ASSERT_EQ(seen.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(seen[i], i);
}

// The nearest queue with a value wins, through its targets; inside a job of
// another queue synced from a job, only that queue counts until it returns.
TEST(VNQueue, SpecificValuesComeFromTheCurrentQueueThenItsTargets) {
  int rootValue = 1, childValue = 2, otherValue = 3;
  auto root = VNQueue::create("org.varnel.test.root");
  auto middle = VNQueue::create("org.varnel.test.middle", root);
  auto child = VNQueue::create("org.varnel.test.child", middle);
  auto other = VNQueue::create("org.varnel.test.other");
  root->setSpecific(&kKey, &rootValue);
  other->setSpecific(&kKey, &otherValue);
  void* seen = nullptr;
  child->sync([&] { seen = VNQueue::getSpecific(&kKey); });
  EXPECT_EQ(seen, &rootValue) << "found through two targets";
  child->setSpecific(&kKey, &childValue);
  child->sync([&] { seen = VNQueue::getSpecific(&kKey); });
  EXPECT_EQ(seen, &childValue);
  child->sync([&] { other->sync([&] { seen = VNQueue::getSpecific(&kKey); }); });
  EXPECT_EQ(seen, &otherValue);
  child->sync([&] {
    other->sync([] {});
    seen = VNQueue::getSpecific(&kKey);
  });
  EXPECT_EQ(seen, &childValue) << "leaving the inner job restores the outer queue";
  child->setSpecific(&kKey, nullptr);
  std::promise<void*> fromWorker;
  child->async([&] { fromWorker.set_value(VNQueue::getSpecific(&kKey)); });
  EXPECT_EQ(fromWorker.get_future().get(), &rootValue) << "removed: the target shows again";
  std::thread([&] { seen = VNQueue::getSpecific(&kKey); }).join();
  EXPECT_EQ(seen, nullptr) << "a plain thread is on no queue";
}

// Jobs on the main queue wait for drainMain and run on the main thread (gtest
// runs tests there); a sync from another thread is one of them.
TEST(VNQueue, MainQueueJobsRunWhenTheMainThreadDrains) {
  auto main = VNQueue::main();
  EXPECT_EQ(VNQueue::drainMain(), 0u);
  std::vector<int> order;
  main->async([&] { order.push_back(1); });
  main->async([&] {
    order.push_back(2);
    EXPECT_EQ(VNQueue::drainMain(), 0u) << "nested drain inside a main job";
    VNQueue::main()->async([&] { order.push_back(3); });
  });
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(VNQueue::drainMain(), 3u);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  std::thread::id ranOn;
  std::atomic<bool> finished{false};
  std::thread caller([&] {
    main->sync([&] { ranOn = std::this_thread::get_id(); });
    finished = true;
  });
  size_t ran = 0;
  while (!finished) ran += VNQueue::drainMain();
  caller.join();
  EXPECT_EQ(ran, 1u);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

using VNQueueDeathTest = ::testing::Test;

TEST_F(VNQueueDeathTest, SyncThatWouldDeadlockAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto outer = VNQueue::create("org.varnel.test.outer");
  auto inner = VNQueue::create("org.varnel.test.inner");
  EXPECT_DEATH(outer->sync([&] { inner->sync([&] { outer->sync([] {}); }); }), "already inside.*org.varnel.test.outer");
  EXPECT_DEATH(VNQueue::main()->sync([] {}), "main queue from the main thread");
  EXPECT_DEATH(std::thread([] { VNQueue::drainMain(); }).join(), "off the main thread");
}

}  // namespace
