#include <future>

#include "foundation/VNWorkPool.h"
#include "support/VNTest.h"

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

// Submits job 0 held by `release`, waits until a worker runs it, then
// submits jobs 1 to `more`.
void submitHeld(VNWorkPool<Job>& pool, std::promise<void>& release, int more) {
  auto held = std::make_unique<Job>(0, release.get_future().share());
  Job* heldJob = held.get();
  pool.submit(std::move(held));
  while (!heldJob->started) std::this_thread::yield();
  for (int i = 1; i <= more; ++i) pool.submit(std::make_unique<Job>(i));
}

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
// owner run the oldest waiting one itself, and waiting runs the rest here.
TEST(WorkPool, AFullWaitingListIsWorkedOffByTheOwner) {
  std::promise<void> release;
  VNWorkPool<Job> pool(1, 2);
  ASSERT_EQ(pool.workers(), 1u);
  submitHeld(pool, release, 3);  // the list holds 1 and 2: 1 runs here
  auto first = pool.takeFinished();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->number, 1);
  EXPECT_EQ(first->thread, std::this_thread::get_id());
  EXPECT_EQ(pool.waitFinished()->number, 2);
  EXPECT_EQ(pool.waitFinished()->number, 3);
  release.set_value();
  auto last = pool.waitFinished();
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->number, 0);
  EXPECT_NE(last->thread, std::this_thread::get_id());
  EXPECT_EQ(pool.waitFinished(), nullptr);
}

// Cancelled tasks never run while a running one still comes back; a pool
// destroyed with work outstanding waits only for the running task.
TEST(WorkPool, CancelledAndAbandonedTasksNeverRun) {
  std::promise<void> release;
  VNWorkPool<Job> pool(1, 8);
  submitHeld(pool, release, 4);
  pool.cancelWaiting();
  EXPECT_EQ(pool.outstanding(), 1u);
  release.set_value();
  auto done = pool.waitFinished();
  ASSERT_NE(done, nullptr);
  EXPECT_EQ(done->number, 0);
  EXPECT_EQ(pool.waitFinished(), nullptr);

  std::promise<void> releaseLater;
  auto abandoned = std::make_unique<VNWorkPool<Job>>(1, 8);
  submitHeld(*abandoned, releaseLater, 4);
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    releaseLater.set_value();
  });
  abandoned.reset();  // returns once the held task ends; the four never start
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
    for (; auto job = pool.takeFinished(); ++taken) ++seen[static_cast<size_t>(job->number)];
    EXPECT_EQ(pool.outstanding(), static_cast<size_t>(i + 1) - taken);
  }
  while (auto job = pool.waitFinished()) ++seen[static_cast<size_t>(job->number)];
  for (int i = 0; i < kTasks; ++i) ASSERT_EQ(seen[static_cast<size_t>(i)], 1) << "task " << i;
}

}  // namespace
