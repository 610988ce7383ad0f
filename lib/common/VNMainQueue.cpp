#include <mutex>

#include "common/VNGeneralUtilities.h"
#include "foundation/VNQueue.h"

namespace {

// The key and the sentinel are addresses of our own, unique in the process.
const char mainQueueKey[] = "VNMainQueueKey";
char mainQueueSentinel;

}  // namespace

namespace VNUtilities {

bool isMainQueue() {
  static std::once_flag attached;
  std::call_once(attached, [] { VNQueue::main()->setSpecific(mainQueueKey, &mainQueueSentinel); });
  return VNQueue::getSpecific(mainQueueKey) == &mainQueueSentinel;
}

}  // namespace VNUtilities
