#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/VNExport.h"

class VNError;

// An exclusive lock on a volume for the length of one job, held through
// flock(2) on a lock file in the volume's top folder. The file stays; the
// lock goes with the process (or with this object), so a crashed holder never
// leaves a volume locked. The holder writes its process id into the file so
// that a refused caller can say who holds the lock.
class VN_EXPORT VNVolumeLock {
 public:
  // Takes the lock on `name` in `folder` without waiting. Null with EBUSY
  // (and the holder's pid in `*holder` when it can be read) when another
  // holder has it; null with the errno when the file cannot be opened. A
  // link at that name is refused (ELOOP), never followed, and so is anything
  // else that is not a regular file (EINVAL).
  static std::unique_ptr<VNVolumeLock> acquire(const std::string& folder, const std::string& name,
                                               VNError* error, std::optional<long>* holder = nullptr);
  ~VNVolumeLock();
  VNVolumeLock(const VNVolumeLock&) = delete;
  VNVolumeLock& operator=(const VNVolumeLock&) = delete;

 private:
  explicit VNVolumeLock(int fd) : fd_(fd) {}
  int fd_;
};
