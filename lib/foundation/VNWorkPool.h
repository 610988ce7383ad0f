#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

// A fixed set of worker threads that run tasks of one type (anything with a
// `void run()`) in the order they are handed in, with at most `capacity`
// tasks waiting to start. Finished tasks go back to the one thread that owns
// the pool, which alone calls its members: so the owner can act on each
// result (log, count, decide) on its own thread, while the costly part of
// the work runs beside it.
//
// When the waiting list is full, or while the owner waits for a result, the
// owner runs waiting tasks itself instead of idling; with no workers (none
// asked for, or the system refused to start them) every task runs on the
// owner's thread as it is handed in. Memory stays bounded by `capacity`
// plus the finished tasks not yet taken back.
template <class Task>
class VNWorkPool {
 public:
  VNWorkPool(unsigned workers, std::size_t capacity) : capacity_(capacity ? capacity : 1) {
    for (unsigned i = 0; i < workers; ++i) {
      try {
        threads_.emplace_back([this] { work(); });
      } catch (const std::system_error&) {
        break;
      }
    }
  }

  // Drops the tasks that have not started and waits for those running.
  ~VNWorkPool() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
      waiting_.clear();
    }
    posted_.notify_all();
    for (auto& thread : threads_) thread.join();
  }

  VNWorkPool(const VNWorkPool&) = delete;
  VNWorkPool& operator=(const VNWorkPool&) = delete;

  unsigned workers() const { return static_cast<unsigned>(threads_.size()); }
  // Tasks handed in and not yet taken back (waiting, running or finished).
  std::size_t outstanding() const { return outstanding_; }

  void submit(std::unique_ptr<Task> task) {
    ++outstanding_;
    std::unique_lock lock(mutex_);
    if (threads_.empty() || waiting_.size() >= capacity_) {
      waiting_.push_back(std::move(task));
      runOldest(lock);
      if (threads_.empty()) return;
    } else {
      waiting_.push_back(std::move(task));
    }
    lock.unlock();
    posted_.notify_one();
  }

  // A finished task, oldest first, or null when none has finished yet.
  std::unique_ptr<Task> takeFinished() {
    std::lock_guard lock(mutex_);
    return popFinished();
  }

  // A finished task, running a waiting one here or waiting for a worker's
  // when none has finished yet; null when nothing is outstanding.
  std::unique_ptr<Task> waitFinished() {
    if (outstanding_ == 0) return nullptr;
    std::unique_lock lock(mutex_);
    for (;;) {
      if (!finished_.empty()) return popFinished();
      if (!waiting_.empty()) {
        runOldest(lock);
        return popFinished();
      }
      done_.wait(lock);
    }
  }

  // Drops the tasks that have not started; those running still finish.
  void cancelWaiting() {
    std::lock_guard lock(mutex_);
    outstanding_ -= waiting_.size();
    waiting_.clear();
  }

 private:
  // Runs the oldest waiting task on the calling thread and files it as
  // finished; `lock` is held before and after, not during the run.
  void runOldest(std::unique_lock<std::mutex>& lock) {
    std::unique_ptr<Task> task = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    task->run();
    lock.lock();
    finished_.push_back(std::move(task));
  }

  std::unique_ptr<Task> popFinished() {
    if (finished_.empty()) return nullptr;
    std::unique_ptr<Task> task = std::move(finished_.front());
    finished_.pop_front();
    --outstanding_;
    return task;
  }

  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      posted_.wait(lock, [&] { return stop_ || !waiting_.empty(); });
      if (stop_) return;
      runOldest(lock);
      done_.notify_one();
    }
  }

  const std::size_t capacity_;
  std::size_t outstanding_ = 0;  // the owner's count; no lock needed
  std::mutex mutex_;
  std::condition_variable posted_;  // a task waits, or the pool stops
  std::condition_variable done_;    // a worker finished a task
  std::deque<std::unique_ptr<Task>> waiting_;
  std::deque<std::unique_ptr<Task>> finished_;
  bool stop_ = false;
  std::vector<std::thread> threads_;
};
