#pragma once

#include <memory>
#include <mutex>
#include <utility>

// The seam between the library and one platform service. Each service is an
// interface with a static makeDefault() that builds the Linux implementation;
// the slot holds the process's current implementation, which tests replace
// with VNPlatformOverride.
template <class Service>
class VNPlatformSlot {
 public:
  static std::shared_ptr<Service> get() {
    std::lock_guard lock(state().mutex);
    if (!state().current) state().current = Service::makeDefault();
    return state().current;
  }
  // Installs `service` (null: back to the default on next use) and returns
  // the one it replaces.
  static std::shared_ptr<Service> set(std::shared_ptr<Service> service) {
    std::lock_guard lock(state().mutex);
    return std::exchange(state().current, std::move(service));
  }

 private:
  // A mutex rather than std::atomic<std::shared_ptr>: libstdc++ 12 guards
  // the latter with a lock bit the thread sanitizer cannot see, so every
  // concurrent use was reported as a race.
  struct State {
    std::mutex mutex;
    std::shared_ptr<Service> current;
  };
  // Never destroyed: threads still running while the process exits may
  // look a service up after static destructors have run.
  static State& state() {
    static State* instance = new State;
    return *instance;
  }
};

// Replaces a service for the lifetime of this object, then restores the
// previous one.
template <class Service>
class VNPlatformOverride {
 public:
  explicit VNPlatformOverride(std::shared_ptr<Service> service)
      : previous_(VNPlatformSlot<Service>::set(std::move(service))) {}
  ~VNPlatformOverride() { VNPlatformSlot<Service>::set(std::move(previous_)); }
  VNPlatformOverride(const VNPlatformOverride&) = delete;
  VNPlatformOverride& operator=(const VNPlatformOverride&) = delete;

 private:
  std::shared_ptr<Service> previous_;
};
