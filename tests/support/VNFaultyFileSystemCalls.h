#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "platform/VNFileSystemCalls.h"

// The real system calls, except that a chosen call fails: the Nth call of a
// kind returns `code` (and, when sticky, every later one too). Installed with
// VNPlatformOverride<VNFileSystemCalls> for ENOSPC, EIO or EXDEV that a real
// file system gives only by chance. Counts every call of each kind.
class VNFaultyFileSystemCalls final : public VNFileSystemCalls {
 public:
  enum class Call { Clone, CopyRange, Read, Write, SetXattr, Count };

  // `nth` counts from 1; 0 disarms.
  void failNth(Call call, int nth, int code, bool sticky = false);
  int calls(Call call) const { return slot(call).calls.load(); }

  int cloneFile(int destinationFd, int sourceFd) override;
  ssize_t copyFileRange(int sourceFd, off_t* sourceOffset, int destinationFd, off_t* destinationOffset,
                        size_t length) override;
  ssize_t readAt(int fd, void* buffer, size_t length, off_t offset) override;
  ssize_t writeAt(int fd, const void* buffer, size_t length, off_t offset) override;
  int setXattr(VNAtPath item, const char* name, const void* value, size_t size) override;

 private:
  struct Slot {
    std::atomic<int> calls{0};
    std::atomic<int> nth{0};
    std::atomic<int> code{0};
    std::atomic<bool> sticky{false};
  };
  Slot& slot(Call call) { return slots_[static_cast<size_t>(call)]; }
  const Slot& slot(Call call) const { return slots_[static_cast<size_t>(call)]; }
  // Counts the call; the negated errno to fail with, or 0 to go on.
  int injected(Call call);

  std::shared_ptr<VNFileSystemCalls> real_ = VNFileSystemCalls::makeDefault();
  std::array<Slot, static_cast<size_t>(Call::Count)> slots_;
};
