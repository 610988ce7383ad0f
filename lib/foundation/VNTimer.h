#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "foundation/VNExport.h"
#include "foundation/VNQueue.h"

struct VNTimerState;

// A repeating timer whose handler runs as an asynchronous job on a queue (the
// shared background queue unless another is given). It is created suspended;
// once resumed it fires first at `start` (at once when that has passed), then
// every `interval` after it, each firing at most `leeway` late: the timers of
// the process share one scheduling thread, which uses the leeway to serve
// several timers with one wake-up. A firing whose job has not yet run when the
// next one is due absorbs it, so a busy queue never piles up firings, and
// periods missed entirely are skipped rather than made up. A zero or negative
// interval fires once.
class VN_EXPORT VNTimer {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;

  static std::shared_ptr<VNTimer> create(Clock::time_point start, Clock::duration interval,
                                         Clock::duration leeway, Handler handler,
                                         std::shared_ptr<VNQueue> queue = nullptr);
  // Cancels the timer.
  ~VNTimer();
  VNTimer(const VNTimer&) = delete;
  VNTimer& operator=(const VNTimer&) = delete;

  // Starts the timer; no effect when it already runs or was cancelled.
  void resume();
  // Stops the timer for good. It waits for nothing, so it may be called from
  // any thread, the handler included. What it guarantees: no run of the
  // handler starts after cancel returns. A run already under way on the queue
  // (on another thread) when cancel is called goes on to its end; callers
  // that must know it has ended cancel from inside a job on the timer's
  // queue, where no run can be under way. The handler is released once its
  // last run has ended.
  void cancel();
  bool isCancelled() const;

 private:
  explicit VNTimer(std::shared_ptr<VNTimerState> state);
  std::shared_ptr<VNTimerState> state_;
};
