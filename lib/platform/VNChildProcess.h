#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/VNExport.h"
#include "foundation/VNUniqueFd.h"

// What a child-process object throws when it cannot launch or wait; the text
// names the step, the program and the errno text.
class VN_EXPORT VNChildProcessException : public std::runtime_error {
 public:
  VNChildProcessException(const std::string& step, const std::string& path, int errnoValue);
  int errnoValue() const { return errno_; }
  std::string description() const { return what(); }

 private:
  int errno_;
};

// One pipe whose read end is read by the thread that owns it. Both ends are
// close-on-exec, so no unrelated child inherits them; a child-process object
// hands the write end to its own child only.
//
// readInBackground arms one read on the calling thread: it completes while
// that thread waits in VNChildProcess::waitUntilExit, never on another
// thread and never after cancelRead or the pipe's destruction.
class VN_EXPORT VNOutputPipe {
 public:
  // Bytes read; empty means end of data.
  using Completion = std::function<void(const std::string& bytes)>;

  // Throws VNChildProcessException when the pipe cannot be made.
  static std::shared_ptr<VNOutputPipe> create();
  ~VNOutputPipe();
  VNOutputPipe(const VNOutputPipe&) = delete;
  VNOutputPipe& operator=(const VNOutputPipe&) = delete;

  int readFd() const { return read_.get(); }
  int writeFd() const { return write_.get(); }
  // Closes the parent's copy of the write end once the child holds its own,
  // so that end of data comes when the child and its descendants close it.
  void closeWriteEnd() { write_.reset(); }

  void readInBackground(Completion completion);
  void cancelRead();
  // What can be read now without waiting, up to one chunk; empty at end of
  // data and when nothing is waiting (a process left behind by the child may
  // hold the pipe open for ever). Throws VNChildProcessException on a read
  // error.
  std::string readAvailableData();

  struct ArmedRead;

 private:
  VNOutputPipe(VNUniqueFd read, VNUniqueFd write);
  VNUniqueFd read_;
  VNUniqueFd write_;
  std::shared_ptr<ArmedRead> armed_;
};

// A helper program to run: launch path, arguments, where its standard output
// and error go. Linux: fork and execve; see docs/task-runner.md for what the
// child inherits.
class VN_EXPORT VNChildProcess {
 public:
  // The Linux implementation.
  static std::shared_ptr<VNChildProcess> create();
  virtual ~VNChildProcess() = default;

  virtual std::string launchPath() const = 0;
  virtual void setLaunchPath(std::string path) = 0;
  virtual std::vector<std::string> arguments() const = 0;
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  // Null leaves the stream as the parent's.
  virtual void setStandardOutput(std::shared_ptr<VNOutputPipe> pipe) = 0;
  virtual void setStandardError(std::shared_ptr<VNOutputPipe> pipe) = 0;
  // When set, the program keeps CAP_LINUX_IMMUTABLE in its bounding set;
  // otherwise it is dropped in the child before the program runs, so neither
  // the program nor anything it starts can change immutable or append-only
  // inode flags. Off by default.
  virtual void setKeepsImmutableCapability(bool keep) = 0;

  // Starts the program; throws VNChildProcessException when it cannot run
  // (missing, not executable, no process). Launching twice throws.
  virtual void launch() = 0;
  // Returns once the program has exited, whatever its descendants do with
  // its pipes; while waiting, completes the reads armed on this thread.
  // Throws VNChildProcessException when the program was never launched.
  virtual void waitUntilExit() = 0;
  // Any thread.
  virtual bool isRunning() const = 0;
  // The exit status, or the number of the signal that ended the program;
  // 0 before it has exited.
  virtual int terminationStatus() const = 0;
};
