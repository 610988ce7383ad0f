#pragma once

#include <functional>
#include <memory>
#include <string>

#include "foundation/VNExport.h"

// A serial work queue: jobs run one at a time, in the order they were added.
// Asynchronous jobs run on the queue's own worker thread; a synchronous job
// runs on the caller's thread once every earlier job has finished, with the
// queue counted as current. Queues may target another queue: a job then also
// sees the target's queue-specific values.
//
// The main queue is the queue of the process's main thread: its jobs run when
// the main thread calls drainMain(), and code on the main thread that is not
// inside another queue's job counts as running on it.
class VN_EXPORT VNQueue {
 public:
  using Job = std::function<void()>;

  static std::shared_ptr<VNQueue> create(std::string label,
                                         std::shared_ptr<VNQueue> target = nullptr);
  static std::shared_ptr<VNQueue> main();
  // A shared queue for short background work (timers fire here).
  static std::shared_ptr<VNQueue> globalBackground();

  virtual ~VNQueue();
  const std::string& label() const;

  void async(Job job);
  // Runs `job` and returns after it has run. Calling sync on the queue that
  // is already current is a programming error and aborts (it would deadlock).
  void sync(const Job& job);

  // Attaches `value` under `key` (null removes it).
  void setSpecific(const void* key, void* value);
  // The value under `key` of the current queue, or of a queue it targets
  // (nearest first); null when none has one.
  static void* getSpecific(const void* key);

  // Runs the main queue's pending jobs on the calling thread, which must be
  // the main thread; returns how many ran.
  static size_t drainMain();

 private:
  struct State;
  explicit VNQueue(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};
