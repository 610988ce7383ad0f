#pragma once

#include <memory>

#include "platform/VNChildProcess.h"

// One read armed by VNOutputPipe::readInBackground. It belongs to the thread
// that armed it and is touched on that thread only.
struct VNOutputPipe::ArmedRead {
  int fd = -1;
  Completion completion;
};

// Adds `read` to the calling thread's armed reads.
void VNArmReadOnThisThread(const std::shared_ptr<VNOutputPipe::ArmedRead>& read);

// Waits until `fd` is readable; meanwhile completes each of this thread's
// armed reads whose descriptor becomes readable (a completion may arm the
// next read). Returns 0, or the errno of a failed poll.
int VNRunReadsUntilReadable(int fd);
