#pragma once

#include <sys/types.h>

#include <mutex>
#include <map>
#include <utility>

// Moves a regular file's data into an empty destination, the cheapest way
// the two file systems allow.
enum class VNContentMethod { Clone, CopyRange, ReadWrite };

struct VNContentResult {
  int code = 0;
  const char* step = "";
  bool onSource = false;  // the failure is the source's (a read), not the destination's
};

// Copies `size` bytes of `sourceFd` into `destinationFd`, starting with
// `*method` and stepping down to the next method when one is refused
// (EOPNOTSUPP, EXDEV, EINVAL, ENOSYS, ENOTTY); `*method` ends as the method
// that worked. Holes of the source stay holes. With `cloneOnly`, a refused
// clone is the result.
VNContentResult VNCopyContent(int sourceFd, int destinationFd, off_t size, bool cloneOnly,
                              VNContentMethod* method);

// The best method known to work from one file system to another, learnt
// from refusals and kept for the life of the object.
class VNContentMethodMemory {
 public:
  VNContentMethod methodFor(dev_t source, dev_t destination);
  void remember(dev_t source, dev_t destination, VNContentMethod method);

 private:
  std::mutex mutex_;
  std::map<std::pair<dev_t, dev_t>, VNContentMethod> methods_;
};
