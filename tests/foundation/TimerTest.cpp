#include <future>

#include "foundation/VNTimer.h"
#include "support/VNTest.h"

namespace {

using namespace std::chrono_literals;
using Clock = VNTimer::Clock;

// Waits (bounded) until `done` holds; false on time-out. Only a guard
// against hanging: no test asserts how fast anything happens.
template <class Predicate>
bool eventually(Predicate done) {
  for (auto limit = Clock::now() + 20s; !done(); std::this_thread::sleep_for(1ms))
    if (Clock::now() > limit) return false;
  return true;
}

// Nothing fires before resume (a second resume changes nothing); a zero
// interval fires once; dropping the timer cancels it and releases the
// handler and what it holds.
TEST(VNTimer, OneShotFiresOnceAfterResumeAndReleasesItsHandler) {
  std::atomic<int> fired{0};
  auto once = VNTimer::create(Clock::now(), 0ms, 0ms, [&] { ++fired; });
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(fired, 0);
  once->resume();
  once->resume();
  ASSERT_TRUE(eventually([&] { return fired == 1; }));
  std::this_thread::sleep_for(20ms);
  VNQueue::globalBackground()->sync([] {});
  EXPECT_EQ(fired, 1);

  auto held = std::make_shared<int>(7);
  std::weak_ptr<int> watch = held;
  {
    auto timer = VNTimer::create(Clock::now() + 1h, 1h, 1s, [held] {});
    timer->resume();
    held.reset();
    EXPECT_FALSE(watch.expired());
  }
  EXPECT_TRUE(watch.expired());
}

// The timer fires again and again on its queue; a cancel made inside a job of
// that queue is final: not one more run afterwards, not even after a resume.
TEST(VNTimer, FiresRepeatedlyOnItsQueueAndStopsAfterCancel) {
  auto queue = VNQueue::create("org.varnel.test.timer");
  const int key = 0;
  int marker = 0;
  queue->setSpecific(&key, &marker);
  int fired = 0;  // touched only on `queue`
  std::atomic<int> firedSeen{0};
  std::atomic<bool> onQueue{true};
  auto timer = VNTimer::create(Clock::now(), 2ms, 1ms, [&] {
    if (VNQueue::getSpecific(&key) != &marker) onQueue = false;
    firedSeen = ++fired;
  }, queue);
  timer->resume();
  ASSERT_TRUE(eventually([&] { return firedSeen >= 5; }));
  int atCancel = 0;
  queue->sync([&] {
    timer->cancel();
    atCancel = fired;
  });
  EXPECT_TRUE(timer->isCancelled());
  timer->resume();
  std::this_thread::sleep_for(50ms);
  queue->sync([&] { EXPECT_EQ(fired, atCancel); });
  EXPECT_TRUE(onQueue);
}

// Cancelling from inside the handler returns at once and ends the timer.
TEST(VNTimer, CancelFromTheHandlerStopsIt) {
  std::atomic<int> fired{0};
  std::shared_ptr<VNTimer> timer;
  std::promise<void> cancelled;
  timer = VNTimer::create(Clock::now(), 1ms, 0ms, [&] {
    if (++fired == 3) {
      timer->cancel();
      cancelled.set_value();
    }
  });
  timer->resume();
  cancelled.get_future().wait();
  std::this_thread::sleep_for(30ms);
  VNQueue::globalBackground()->sync([] {});
  EXPECT_EQ(fired, 3);
}

// Cancels racing with resumes and firings from several threads leave nothing
// running and no data race behind (thread sanitizer).
TEST(VNTimer, CancelRacingWithResumeLeavesItStopped) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> fired{0};
    auto timer = VNTimer::create(Clock::now(), 100us, 0ms, [&] { ++fired; });
    std::thread resumer([&] { timer->resume(); });
    timer->cancel();
    resumer.join();
    VNQueue::globalBackground()->sync([] {});
    int settled = fired;
    std::this_thread::sleep_for(2ms);
    VNQueue::globalBackground()->sync([] {});
    EXPECT_EQ(fired, settled);
  }
}

}  // namespace
