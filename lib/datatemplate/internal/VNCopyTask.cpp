#include "datatemplate/internal/VNCopyTask.h"

#include <unistd.h>

void VNCopyTask::run() {
  if (kind == Kind::Clone) {
    ::unlink(destination.c_str());
    result = clone->clone(firstCopy, destination, /*follow=*/false);
    return;
  }
  VNAtPath source = folder ? VNAtPath(folder->source.get(), name.c_str()) : VNAtPath(sourcePath);
  VNAtPath target = folder ? VNAtPath(folder->destination.get(), name.c_str()) : VNAtPath(destination);
  result = copyItem->copyItem(source, target, VNCopyOptionSet::Full, &status);
}
