#pragma once

#include <unistd.h>

#include <utility>

// Owns one file descriptor and closes it on destruction. Ownership leaves
// only through release().
class VNUniqueFd {
 public:
  VNUniqueFd() = default;
  explicit VNUniqueFd(int fd) : fd_(fd) {}
  VNUniqueFd(VNUniqueFd&& other) noexcept : fd_(other.release()) {}
  VNUniqueFd& operator=(VNUniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  VNUniqueFd(const VNUniqueFd&) = delete;
  VNUniqueFd& operator=(const VNUniqueFd&) = delete;
  ~VNUniqueFd() { reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};
