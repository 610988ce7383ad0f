#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "foundation/VNWorkPool.h"

namespace {

// A task that records where it ran, optionally holding its thread until
// released.
struct Job {
  explicit Job(int number, std::shared_future<void> gate = {}) : number(number), gate(std::move(gate)) {}
  void run() {
    started = true;
    if (gate.valid()) gate.wait();
    thread = std::this_thread::get_id();
  }
  int number;
  std::shared_future<void> gate;
  std::atomic<bool> started{false};
  std::thread::id thread;
};

std::vector<std::unique_ptr<Job>> drain(VNWorkPool<Job>& pool) {
  std::vector<std::unique_ptr<Job>> done;
  while (auto job = pool.waitFinished()) done.push_back(std::move(job));
  return done;
}

}  // namespace

TEST(WorkPool, WithoutWorkersEveryTaskRunsAtOnceOnTheOwnersThread) {
  VNWorkPool<Job> pool(0, 4);
  EXPECT_EQ(pool.workers(), 0u);
  EXPECT_EQ(pool.waitFinished(), nullptr) << "nothing outstanding: no wait";
  for (int i = 0; i < 3; ++i) pool.submit(std::make_unique<Job>(i));
  EXPECT_EQ(pool.outstanding(), 3u);
  for (int i = 0; i < 3; ++i) {
    auto job = pool.takeFinished();
    ASSERT_NE(job, nullptr);
    EXPECT_EQ(job->number, i);
    EXPECT_EQ(job->thread, std::this_thread::get_id());
  }
  EXPECT_EQ(pool.takeFinished(), nullptr);
  EXPECT_EQ(pool.outstanding(), 0u);
}

// With the one worker held, the waiting list fills; a further task makes the
// owner run the oldest waiting one itself instead of growing the list.
TEST(WorkPool, AFullWaitingListIsWorkedOffByTheOwner) {
  std::promise<void> release;
  std::shared_future<void> gate = release.get_future().share();
  VNWorkPool<Job> pool(1, 2);
  ASSERT_EQ(pool.workers(), 1u);
  auto held = std::make_unique<Job>(0, gate);
  Job* heldJob = held.get();
  pool.submit(std::move(held));
  while (!heldJob->started) std::this_thread::yield();
  pool.submit(std::make_unique<Job>(1));
  pool.submit(std::make_unique<Job>(2));
  pool.submit(std::make_unique<Job>(3));  // the list holds 1 and 2: 1 runs here
  auto first = pool.takeFinished();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->number, 1);
  EXPECT_EQ(first->thread, std::this_thread::get_id());
  // Waiting while the worker is held runs the waiting ones here, in order.
  auto second = pool.waitFinished();
  auto third = pool.waitFinished();
  EXPECT_EQ(second->number, 2);
  EXPECT_EQ(third->number, 3);
  release.set_value();
  auto last = pool.waitFinished();
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->number, 0);
  EXPECT_NE(last->thread, std::this_thread::get_id());
  EXPECT_EQ(pool.waitFinished(), nullptr);
}

TEST(WorkPool, CancelledTasksNeverRunWhileRunningOnesStillComeBack) {
  std::promise<void> release;
  std::shared_future<void> gate = release.get_future().share();
  VNWorkPool<Job> pool(1, 8);
  auto held = std::make_unique<Job>(0, gate);
  Job* heldJob = held.get();
  pool.submit(std::move(held));
  while (!heldJob->started) std::this_thread::yield();
  for (int i = 1; i <= 4; ++i) pool.submit(std::make_unique<Job>(i));
  pool.cancelWaiting();
  EXPECT_EQ(pool.outstanding(), 1u);
  release.set_value();
  auto done = drain(pool);
  ASSERT_EQ(done.size(), 1u);
  EXPECT_EQ(done[0]->number, 0);
}

TEST(WorkPool, DestroyingAPoolWithWorkOutstandingWaitsOnlyForRunningTasks) {
  std::promise<void> release;
  std::shared_future<void> gate = release.get_future().share();
  auto pool = std::make_unique<VNWorkPool<Job>>(1, 8);
  auto held = std::make_unique<Job>(0, gate);
  Job* heldJob = held.get();
  pool->submit(std::move(held));
  while (!heldJob->started) std::this_thread::yield();
  for (int i = 1; i <= 4; ++i) pool->submit(std::make_unique<Job>(i));
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    release.set_value();
  });
  pool.reset();  // returns once the held task ends; the four never start
  releaser.join();
}

// Many tasks through several workers: each comes back exactly once, and the
// owner's count of what is out stays right throughout.
TEST(WorkPool, EveryTaskComesBackExactlyOnce) {
  constexpr int kTasks = 5000;
  VNWorkPool<Job> pool(3, 16);
  std::vector<int> seen(kTasks, 0);
  size_t taken = 0;
  for (int i = 0; i < kTasks; ++i) {
    pool.submit(std::make_unique<Job>(i));
    while (auto job = pool.takeFinished()) {
      ++seen[static_cast<size_t>(job->number)];
      ++taken;
    }
    EXPECT_EQ(pool.outstanding(), static_cast<size_t>(i + 1) - taken);
  }
  for (auto& job : drain(pool)) ++seen[static_cast<size_t>(job->number)];
  for (int i = 0; i < kTasks; ++i) ASSERT_EQ(seen[static_cast<size_t>(i)], 1) << "task " << i;
}
