#include "datatemplate/internal/VNCopyTask.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/internal/VNBeneath.h"

void VNCopyFolder::open(VNUniqueFd sourceFd, VNUniqueFd destinationFd, std::size_t* heldCount) {
  close();
  source = std::move(sourceFd);
  destination = std::move(destinationFd);
  held = heldCount;
  if (held) ++*held;
}

void VNCopyFolder::close() {
  if (held && source) --*held;
  source.reset();
  destination.reset();
}

namespace {

// Clones the first copy, reached from the target root with no symbolic link
// on the way, so that its path may be of any length.
VNFsStatus cloneFirstCopy(const VNCopyTask& task, VNAtPath target) {
  const std::size_t slash = task.firstCopyBelow.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : task.firstCopyBelow.substr(0, slash);
  VNUniqueFd held(VNOpenBeneath(task.targetRoot, folder, O_PATH | O_DIRECTORY));
  if (!held) return VNFsStatus::failure(errno, "open", task.firstCopy);
  const std::string name = task.firstCopyBelow.substr(slash + 1);
  return task.clone->clone(VNAtPath(held.get(), name.c_str()), target, /*follow=*/false);
}

}  // namespace

void VNCopyTask::run() {
  VNAtPath target = folder ? VNAtPath(folder->destination.get(), name.c_str()) : VNAtPath(destination);
  if (kind == Kind::Clone) {
    ::unlinkat(target.dirfd, target.path, 0);
    result = cloneFirstCopy(*this, target);
    return;
  }
  VNAtPath source = folder ? VNAtPath(folder->source.get(), name.c_str()) : VNAtPath(sourcePath);
  result = copyItem->copyItem(source, target, VNCopyOptionSet::Full, &status);
}
