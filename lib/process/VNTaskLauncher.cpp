#include "platform/VNResources.h"
#include "process/VNTask.h"
#include "process/internal/VNProcessLog.h"

std::shared_ptr<VNChildProcess> VNTask::wardSanitizedTaskFromTask(
    std::shared_ptr<VNChildProcess> task) {
  if (!task) return nullptr;
  std::vector<std::string> arguments = task->arguments();
  arguments.insert(arguments.begin(), task->launchPath());
  task->setArguments(std::move(arguments));
  const auto launcher = VNResourcePath("drop_ward", "Tools");
  if (!launcher) {
    VNProcessLog(VNLogTypeError, "Unable to locate drop_ward launcher");
    return nullptr;
  }
  task->setLaunchPath(*launcher);
  // The launcher must be able to hand the program what the protection
  // withholds, so it keeps the capability the runner otherwise drops.
  task->setKeepsImmutableCapability(true);
  return task;
}
