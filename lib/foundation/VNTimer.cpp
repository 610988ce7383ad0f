// Timers: one process-wide scheduling thread keeps the running timers with
// their next deadlines, sleeps until the next batch is due and posts each due
// timer's firing as a job on the timer's queue.
#include "foundation/VNTimer.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

struct VNTimerState {
  using Clock = VNTimer::Clock;

  // Set at creation, then read-only.
  Clock::duration interval{};
  Clock::duration leeway{};
  std::shared_ptr<VNQueue> queue;

  // Owned by the scheduler, under its lock.
  Clock::time_point deadline;

  // Under `mutex`.
  mutable std::mutex mutex;
  std::shared_ptr<const VNTimer::Handler> handler;  // null once cancelled
  bool started = false;
  bool firePending = false;  // a firing job waits on the queue

  bool cancelled() const { return !handler; }
};

namespace {

using Clock = VNTimer::Clock;

// Runs one firing on the timer's queue. Taking the handler under the lock is
// what orders a run against cancel: once cancel has released the handler, no
// run can take it.
void runFiring(const std::shared_ptr<VNTimerState>& timer) {
  std::shared_ptr<const VNTimer::Handler> handler;
  {
    std::lock_guard lock(timer->mutex);
    timer->firePending = false;
    handler = timer->handler;
  }
  if (handler) (*handler)();
}

// Posts a firing unless one is still pending; false when the timer turns out
// to be cancelled (a cancel racing with resume can leave it scheduled).
bool postFiring(const std::shared_ptr<VNTimerState>& timer) {
  {
    std::lock_guard lock(timer->mutex);
    if (timer->cancelled()) return false;
    if (timer->firePending) return true;
    timer->firePending = true;
  }
  timer->queue->async([timer] { runFiring(timer); });
  return true;
}

// The next deadline after `now` on the timer's grid of periods.
Clock::time_point nextDeadline(const VNTimerState& timer, Clock::time_point now) {
  auto missed = (now - timer.deadline) / timer.interval;
  return timer.deadline + (missed + 1) * timer.interval;
}

class Scheduler {
 public:
  // Never destroyed: its thread runs until the process ends.
  static Scheduler& shared() {
    static Scheduler* scheduler = new Scheduler;
    return *scheduler;
  }

  void add(std::shared_ptr<VNTimerState> timer) {
    std::lock_guard lock(mutex_);
    if (!threadStarted_) {
      std::thread([this] { run(); }).detach();
      threadStarted_ = true;
    }
    timers_.push_back(std::move(timer));
    changed_.notify_one();
  }

  void remove(const VNTimerState* timer) {
    std::lock_guard lock(mutex_);
    std::erase_if(timers_, [&](const auto& t) { return t.get() == timer; });
    changed_.notify_one();
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      fireDue(Clock::now());
      if (timers_.empty())
        changed_.wait(lock);
      else
        changed_.wait_until(lock, nextWake());
    }
  }

  void fireDue(Clock::time_point now) {
    std::erase_if(timers_, [&](const std::shared_ptr<VNTimerState>& timer) {
      if (timer->deadline > now) return false;
      if (!postFiring(timer)) return true;
      if (timer->interval <= Clock::duration::zero()) return true;
      timer->deadline = nextDeadline(*timer, now);
      return false;
    });
  }

  // The latest deadline that is still no later than every timer's deadline
  // plus leeway: waking then serves all timers due by that moment, none of
  // them later than its leeway allows, and a lone timer on time.
  Clock::time_point nextWake() const {
    Clock::time_point latestAllowed = Clock::time_point::max();
    for (const auto& timer : timers_)
      latestAllowed = std::min(latestAllowed, timer->deadline + timer->leeway);
    Clock::time_point wake = Clock::time_point::min();
    for (const auto& timer : timers_)
      if (timer->deadline <= latestAllowed) wake = std::max(wake, timer->deadline);
    return wake;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::shared_ptr<VNTimerState>> timers_;
  bool threadStarted_ = false;
};

}  // namespace

VNTimer::VNTimer(std::shared_ptr<VNTimerState> state) : state_(std::move(state)) {}

VNTimer::~VNTimer() { cancel(); }

std::shared_ptr<VNTimer> VNTimer::create(Clock::time_point start, Clock::duration interval,
                                         Clock::duration leeway, Handler handler,
                                         std::shared_ptr<VNQueue> queue) {
  auto state = std::make_shared<VNTimerState>();
  state->interval = interval;
  state->leeway = std::max(leeway, Clock::duration::zero());
  state->queue = queue ? std::move(queue) : VNQueue::globalBackground();
  state->deadline = start;
  state->handler = std::make_shared<const Handler>(std::move(handler));
  return std::shared_ptr<VNTimer>(new VNTimer(std::move(state)));
}

void VNTimer::resume() {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->started || state_->cancelled()) return;
    state_->started = true;
  }
  Scheduler::shared().add(state_);
}

void VNTimer::cancel() {
  std::shared_ptr<const Handler> released;
  bool wasStarted;
  {
    std::lock_guard lock(state_->mutex);
    released = std::move(state_->handler);
    wasStarted = state_->started;
  }
  if (released && wasStarted) Scheduler::shared().remove(state_.get());
}

bool VNTimer::isCancelled() const {
  std::lock_guard lock(state_->mutex);
  return state_->cancelled();
}
