#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/VNExport.h"
#include "foundation/VNProgress.h"
#include "foundation/VNQueue.h"
#include "platform/VNChildProcess.h"

// Runs one helper program to completion on the caller's thread, relaying
// everything it writes to standard output and standard error (one pipe, in
// the order written) to the log, one line at a time behind logPrefix, and
// optionally advancing a progress of the caller's one unit a second against
// an estimate of the running time.
//
// Unless created with allowWARD true, the program is started through the
// launcher "drop_ward" from the library's resources, which runs it with the
// integrity protection lifted (docs/task-runner.md).
//
// Object properties have atomic accessors; run() is called once, never on
// parentProgressQueue (it submits to that queue synchronously).
class VN_EXPORT VNTask : public std::enable_shared_from_this<VNTask> {
 public:
  static std::shared_ptr<VNTask> initWithTask(std::shared_ptr<VNChildProcess> task,
                                              bool allowWARD = false);
  // Reroutes `task` through the launcher: the program's path becomes its
  // first argument. Null, after the log line "Unable to locate drop_ward
  // launcher", when the launcher is not found (the arguments stay changed).
  static std::shared_ptr<VNChildProcess> wardSanitizedTaskFromTask(
      std::shared_ptr<VNChildProcess> task);

  ~VNTask();
  VNTask(const VNTask&) = delete;
  VNTask& operator=(const VNTask&) = delete;

  // True when the program exited with status 0. False for any other status,
  // when launching or waiting failed, and when the runner holds no program
  // (its launcher was not found).
  bool run();
  // Logs the lines of one chunk of output; no carry-over between chunks.
  void processOutput(const std::string& bytes);
  // Relays what the pipe still holds once the program has exited.
  void processRemainingData();
  // One completed read of outputFileHandle: relays it and reads on, or ends
  // at end of data.
  void fileHandleReadCompleted(const std::shared_ptr<VNOutputPipe>& handle,
                               const std::string& bytes);

  std::int32_t terminationStatus() const { return terminationStatus_; }
  void setTerminationStatus(std::int32_t status) { terminationStatus_ = status; }
  std::shared_ptr<VNChildProcess> task() const;
  void setTask(std::shared_ptr<VNChildProcess> task);
  std::string logPrefix() const;
  void setLogPrefix(std::string prefix);
  double estimatedTimeToComplete() const { return estimatedTimeToComplete_; }
  void setEstimatedTimeToComplete(double seconds) { estimatedTimeToComplete_ = seconds; }
  std::shared_ptr<VNProgress> parentProgress() const;
  void setParentProgress(std::shared_ptr<VNProgress> progress);
  double parentProgressPendingUnits() const { return parentProgressPendingUnits_; }
  void setParentProgressPendingUnits(double units) { parentProgressPendingUnits_ = units; }
  std::shared_ptr<VNQueue> parentProgressQueue() const;
  void setParentProgressQueue(std::shared_ptr<VNQueue> queue);
  std::shared_ptr<VNOutputPipe> outputFileHandle() const;
  void setOutputFileHandle(std::shared_ptr<VNOutputPipe> handle);

 private:
  VNTask() = default;
  struct Tracking;
  std::shared_ptr<Tracking> startTracking();
  void finishTracking(const Tracking& tracking);
  bool launchAndWait(const std::shared_ptr<VNChildProcess>& task, Tracking* tracking);
  void armRead(const std::shared_ptr<VNOutputPipe>& handle);
  std::string launchPath() const;

  mutable std::mutex mutex_;
  std::int32_t terminationStatus_ = 0;
  std::shared_ptr<VNChildProcess> task_;
  std::string logPrefix_;
  double estimatedTimeToComplete_ = -1.0;
  std::shared_ptr<VNProgress> parentProgress_;
  double parentProgressPendingUnits_ = 0;
  std::shared_ptr<VNQueue> parentProgressQueue_;
  std::shared_ptr<VNOutputPipe> outputFileHandle_;
};
