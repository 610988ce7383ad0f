#include "datatemplate/internal/VNCopyTask.h"

#include <fcntl.h>
#include <unistd.h>

void VNCopyTask::run() {
  VNAtPath target = folder ? VNAtPath(folder->destination.get(), name.c_str()) : VNAtPath(destination);
  if (kind == Kind::Clone) {
    ::unlinkat(target.dirfd, target.path, 0);
    result = clone->clone(firstCopy, target, /*follow=*/false);
    return;
  }
  VNAtPath source = folder ? VNAtPath(folder->source.get(), name.c_str()) : VNAtPath(sourcePath);
  result = copyItem->copyItem(source, target, VNCopyOptionSet::Full, &status);
}
