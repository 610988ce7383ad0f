#pragma once

#include <functional>
#include <memory>
#include <string>

#include "foundation/VNExport.h"

struct VNQueueState;

// A serial work queue: jobs run one at a time, in the order they were added.
// Asynchronous jobs run on the queue's own worker thread, started on the
// first asynchronous job and ended once the queue is idle; a synchronous job
// runs on the caller's thread once every earlier job has finished, with the
// queue counted as current. A queue used only synchronously never starts a
// thread.
//
// A queue may target another queue: its jobs then also see the target's
// queue-specific values. The target lends its values only; jobs of the two
// queues are not serialised against each other.
//
// The main queue is the queue of the process's main thread: its jobs run on
// the main thread when it calls drainMain(), and code on the main thread that
// is not inside another queue's job counts as running on it.
//
// Pending asynchronous jobs keep their queue alive: dropping the last handle
// does not discard them. Asynchronous jobs must not throw (an escaping
// exception ends the process, as on any thread); a synchronous job's
// exception reaches the caller of sync() and leaves the queue usable.
class VN_EXPORT VNQueue {
 public:
  using Job = std::function<void()>;

  static std::shared_ptr<VNQueue> create(std::string label,
                                         std::shared_ptr<VNQueue> target = nullptr);
  // The process-wide queues live until the process ends.
  static std::shared_ptr<VNQueue> main();
  // A shared serial queue for short background work (timers fire here by
  // default), labelled "org.varnel.background".
  static std::shared_ptr<VNQueue> globalBackground();

  ~VNQueue();
  VNQueue(const VNQueue&) = delete;
  VNQueue& operator=(const VNQueue&) = delete;

  const std::string& label() const;

  void async(Job job);
  // Runs `job` and returns after it has run. Syncing onto a queue whose job
  // the calling thread is already inside (the current queue or one further
  // out), or onto the main queue from the main thread, would deadlock: it is
  // a programming error and aborts. From another thread, a synchronous job on
  // the main queue runs on the main thread at its next drainMain(), the
  // caller waiting for it.
  void sync(const Job& job);

  // Attaches `value` under `key` (null removes it).
  void setSpecific(const void* key, void* value);
  // The value under `key` of the current queue, or of a queue it targets
  // (nearest first); null when none has one or no queue is current.
  static void* getSpecific(const void* key);

  // Runs the main queue's pending jobs, and those they add, on the calling
  // thread, which must be the main thread (anything else aborts); returns how
  // many ran. Inside a main-queue job it runs nothing and returns 0.
  static size_t drainMain();

 private:
  explicit VNQueue(std::shared_ptr<VNQueueState> state);
  std::shared_ptr<VNQueueState> state_;
};
