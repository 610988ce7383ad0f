#include "process/VNTask.h"

// Object properties: atomic accessors under the runner's mutex, so the tick
// on the background queue reads them safely.

std::shared_ptr<VNChildProcess> VNTask::task() const {
  std::lock_guard lock(mutex_);
  return task_;
}
void VNTask::setTask(std::shared_ptr<VNChildProcess> task) {
  std::lock_guard lock(mutex_);
  task_ = std::move(task);
}
std::string VNTask::logPrefix() const {
  std::lock_guard lock(mutex_);
  return logPrefix_;
}
void VNTask::setLogPrefix(std::string prefix) {
  std::lock_guard lock(mutex_);
  logPrefix_ = std::move(prefix);
}
std::shared_ptr<VNProgress> VNTask::parentProgress() const {
  std::lock_guard lock(mutex_);
  return parentProgress_;
}
void VNTask::setParentProgress(std::shared_ptr<VNProgress> progress) {
  std::lock_guard lock(mutex_);
  parentProgress_ = std::move(progress);
}
std::shared_ptr<VNQueue> VNTask::parentProgressQueue() const {
  std::lock_guard lock(mutex_);
  return parentProgressQueue_;
}
void VNTask::setParentProgressQueue(std::shared_ptr<VNQueue> queue) {
  std::lock_guard lock(mutex_);
  parentProgressQueue_ = std::move(queue);
}
std::shared_ptr<VNOutputPipe> VNTask::outputFileHandle() const {
  std::lock_guard lock(mutex_);
  return outputFileHandle_;
}
void VNTask::setOutputFileHandle(std::shared_ptr<VNOutputPipe> handle) {
  std::lock_guard lock(mutex_);
  outputFileHandle_ = std::move(handle);
}
