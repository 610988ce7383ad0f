#include "process/VNTask.h"

#include <chrono>

#include "common/VNLogging.h"
#include "foundation/VNFormat.h"
#include "foundation/VNTimer.h"
#include "process/internal/VNProcessLog.h"

using namespace std::chrono_literals;

// One run's progress: the child progress and what it reports to. Present
// only while tracking is on.
struct VNTask::Tracking {
  std::shared_ptr<VNProgress> child;
  std::shared_ptr<VNProgress> parent;
  std::shared_ptr<VNQueue> queue;
  std::shared_ptr<VNTimer> timer;
};

namespace {

// The one-second tick: counts a unit while the program runs, never past the
// total; once the program has ended it stops its timer and touches nothing.
void tick(const std::weak_ptr<VNTask>& weakRunner, const std::shared_ptr<VNProgress>& child,
          const std::shared_ptr<VNQueue>& queue, const std::weak_ptr<VNTimer>& weakTimer) {
  auto runner = weakRunner.lock();
  auto task = runner ? runner->task() : nullptr;
  if (!task || !task->isRunning()) {
    if (auto timer = weakTimer.lock()) timer->cancel();
    return;
  }
  const std::string path = task->launchPath();
  queue->sync([&] {
    if (child->completedUnitCount() < child->totalUnitCount()) {
      child->incrementCompletedUnitCount(1);
      VNProcessLog(VNLogTypeDebug, "Progress info: Task (%@) progress updated: \n%@", path, *child);
    } else {
      VNProcessLog(VNLogTypeDebug,
                "Progress info: Task (%@) progress not updated as it is already at max: \n%@",
                path, *child);
    }
  });
}

}  // namespace

std::shared_ptr<VNTask> VNTask::initWithTask(std::shared_ptr<VNChildProcess> task, bool allowWARD) {
  std::shared_ptr<VNTask> runner(new VNTask);
  runner->logPrefix_ = VNFormat("%@: ", task ? task->launchPath() : std::string());
  runner->task_ = allowWARD ? std::move(task) : wardSanitizedTaskFromTask(std::move(task));
  return runner;
}

VNTask::~VNTask() {
  if (outputFileHandle_) outputFileHandle_->cancelRead();
}

bool VNTask::run() {
  auto task = this->task();
  if (!task) return false;
  std::shared_ptr<VNOutputPipe> pipe;
  try {
    pipe = VNOutputPipe::create();
  } catch (const VNChildProcessException& exception) {
    // Out of descriptors: reported like a launch that failed.
    VNProcessLog(VNLogTypeDefault, "Exception thrown while executing %@: %@", task->launchPath(),
                 exception);
    return false;
  }
  task->setStandardOutput(pipe);
  task->setStandardError(pipe);
  setOutputFileHandle(pipe);
  armRead(pipe);
  auto tracking = startTracking();
  if (!launchAndWait(task, tracking.get())) {
    pipe->cancelRead();
    return false;
  }
  if (tracking) {
    tracking->timer->cancel();
    finishTracking(*tracking);
  }
  processRemainingData();
  pipe->cancelRead();
  setTerminationStatus(task->terminationStatus());
  return terminationStatus() == 0;
}

bool VNTask::launchAndWait(const std::shared_ptr<VNChildProcess>& task, Tracking* tracking) {
  try {
    task->launch();
    if (tracking) tracking->timer->resume();
    task->waitUntilExit();
    return true;
  } catch (const VNChildProcessException& exception) {
    VNProcessLog(VNLogTypeDefault, "Exception thrown while executing %@: %@", task->launchPath(),
              exception);
    if (tracking) finishTracking(*tracking);
    return false;
  }
}

std::shared_ptr<VNTask::Tracking> VNTask::startTracking() {
  auto tracking = std::make_shared<Tracking>();
  tracking->parent = parentProgress();
  tracking->queue = parentProgressQueue();
  const double estimate = estimatedTimeToComplete();
  const double pending = parentProgressPendingUnits();
  if (!(estimate > 0.0) || !tracking->parent || pending < 1.0 || !tracking->queue) return nullptr;
  tracking->child = VNProgress::create();
  const std::string path = launchPath();
  tracking->queue->sync([&] {
    tracking->child->setTotalUnitCount(static_cast<std::int64_t>(estimate));
    tracking->parent->addChild(tracking->child, static_cast<std::int64_t>(pending));
    VNProcessLog(VNLogTypeDebug,
              "Progress info: Task (%@) progress added [Expected: %f - (%f | 1 unit each)]: \n%@",
              path, pending, pending, *tracking->child);
  });
  // The handler reaches its own timer through a slot filled before the
  // timer is resumed, so that it can stop the timer once the program ended.
  auto timerSlot = std::make_shared<std::weak_ptr<VNTimer>>();
  tracking->timer = VNTimer::create(
      VNTimer::Clock::now(), 1s, 250ms,
      [weakRunner = weak_from_this(), child = tracking->child, queue = tracking->queue,
       timerSlot] { tick(weakRunner, child, queue, *timerSlot); });
  *timerSlot = tracking->timer;
  return tracking;
}

void VNTask::finishTracking(const Tracking& tracking) {
  const std::string path = launchPath();
  tracking.queue->sync([&] {
    tracking.child->setCompletedUnitCount(tracking.child->totalUnitCount());
    VNProcessLog(VNLogTypeDebug, "Progress info: Task (%@) progress finish confirmed: \n%@", path,
              *tracking.child);
  });
}

void VNTask::armRead(const std::shared_ptr<VNOutputPipe>& handle) {
  std::weak_ptr<VNTask> weakRunner = weak_from_this();
  std::weak_ptr<VNOutputPipe> weakHandle = handle;
  handle->readInBackground([weakRunner, weakHandle](const std::string& bytes) {
    auto runner = weakRunner.lock();
    auto handle = weakHandle.lock();
    if (runner && handle) runner->fileHandleReadCompleted(handle, bytes);
  });
}

void VNTask::fileHandleReadCompleted(const std::shared_ptr<VNOutputPipe>& handle,
                                     const std::string& bytes) {
  if (bytes.empty()) return;
  processOutput(bytes);
  armRead(handle);
}

void VNTask::processRemainingData() {
  auto handle = outputFileHandle();
  if (!handle) return;
  try {
    for (std::string bytes = handle->readAvailableData(); !bytes.empty();
         bytes = handle->readAvailableData())
      processOutput(bytes);
  } catch (const VNChildProcessException&) {
    // Draining ends quietly; the run is judged by the exit status.
  }
}

void VNTask::processOutput(const std::string& bytes) {
  if (bytes.empty()) return;
  VNTaskRelayChunk(bytes, logPrefix(), [this] { return launchPath(); });
}

std::string VNTask::launchPath() const {
  auto task = this->task();
  return task ? task->launchPath() : std::string();
}
