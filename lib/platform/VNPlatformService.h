#pragma once

#include <atomic>
#include <memory>

// The seam between the library and one platform service. Each service is an
// interface with a static makeDefault() that builds the Linux implementation;
// the slot holds the process's current implementation, which tests replace
// with VNPlatformOverride.
template <class Service>
class VNPlatformSlot {
 public:
  static std::shared_ptr<Service> get() {
    std::shared_ptr<Service> current = slot().load();
    if (current) return current;
    std::shared_ptr<Service> made = Service::makeDefault();
    std::shared_ptr<Service> expected;
    return slot().compare_exchange_strong(expected, made) ? made : expected;
  }
  // Installs `service` (null: back to the default on next use) and returns
  // the one it replaces.
  static std::shared_ptr<Service> set(std::shared_ptr<Service> service) {
    return slot().exchange(std::move(service));
  }

 private:
  static std::atomic<std::shared_ptr<Service>>& slot() {
    static std::atomic<std::shared_ptr<Service>> instance;
    return instance;
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
