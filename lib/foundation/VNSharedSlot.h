#pragma once

#include <memory>
#include <mutex>

// A shared pointer that one thread may replace while others read it; each
// load or store is indivisible. A mutex rather than
// std::atomic<std::shared_ptr>, whose libstdc++ 12 lock the thread sanitizer
// cannot see.
template <class T>
class VNSharedSlot {
 public:
  std::shared_ptr<const T> load() const {
    std::lock_guard lock(mutex_);
    return value_;
  }
  void store(std::shared_ptr<const T> value) {
    std::lock_guard lock(mutex_);
    value_.swap(value);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const T> value_;
};
