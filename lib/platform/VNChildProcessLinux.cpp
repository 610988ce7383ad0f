#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/capability.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "platform/VNChildProcess.h"
#include "platform/internal/VNReadLoop.h"

extern char** environ;

namespace {

// Between fork and exec only async-signal-safe calls: set up the streams,
// drop the capability, exec, and report a failure's errno on `report`.
[[noreturn]] void execChild(const char* path, char* const* argv, int outFd, int errFd,
                            bool keepImmutable, int report) {
  int error = 0;
  if (outFd >= 0 && ::dup2(outFd, STDOUT_FILENO) < 0) error = errno;
  if (!error && errFd >= 0 && ::dup2(errFd, STDERR_FILENO) < 0) error = errno;
  if (!error && !keepImmutable && ::prctl(PR_CAPBSET_DROP, CAP_LINUX_IMMUTABLE, 0, 0, 0) != 0 &&
      errno != EPERM)
    error = errno;
  if (!error) {
    ::execve(path, argv, environ);
    error = errno;
  }
  while (::write(report, &error, sizeof error) < 0 && errno == EINTR) {
  }
  ::_exit(127);
}

class LinuxChildProcess final : public VNChildProcess {
 public:
  ~LinuxChildProcess() override {
    // A launched program that was never waited for is reaped when it ends,
    // not left as a zombie for the life of the caller.
    if (pid_ > 0 && running_) ::waitpid(pid_, nullptr, WNOHANG);
  }
  std::string launchPath() const override {
    std::lock_guard lock(mutex_);
    return path_;
  }
  void setLaunchPath(std::string path) override {
    std::lock_guard lock(mutex_);
    path_ = std::move(path);
  }
  std::vector<std::string> arguments() const override {
    std::lock_guard lock(mutex_);
    return arguments_;
  }
  void setArguments(std::vector<std::string> arguments) override {
    std::lock_guard lock(mutex_);
    arguments_ = std::move(arguments);
  }
  void setStandardOutput(std::shared_ptr<VNOutputPipe> pipe) override { out_ = std::move(pipe); }
  void setStandardError(std::shared_ptr<VNOutputPipe> pipe) override { err_ = std::move(pipe); }
  void setKeepsImmutableCapability(bool keep) override { keepImmutable_ = keep; }

  void launch() override;
  void waitUntilExit() override;
  bool isRunning() const override { return running_; }
  int terminationStatus() const override { return status_; }

 private:
  void awaitExec(VNUniqueFd report, const std::string& path);

  mutable std::mutex mutex_;
  std::string path_;
  std::vector<std::string> arguments_;
  std::shared_ptr<VNOutputPipe> out_, err_;
  bool keepImmutable_ = false;
  pid_t pid_ = -1;
  VNUniqueFd pidfd_;
  std::atomic<bool> running_{false};
  std::atomic<int> status_{0};
};

void LinuxChildProcess::launch() {
  const std::string path = launchPath();
  if (pid_ > 0) throw VNChildProcessException("launch again", path, EBUSY);
  std::vector<std::string> args = arguments();
  args.insert(args.begin(), path);
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  int report[2];
  if (::pipe2(report, O_CLOEXEC) != 0) throw VNChildProcessException("launch", path, errno);
  VNUniqueFd reportRead(report[0]), reportWrite(report[1]);
  const pid_t pid = ::fork();
  if (pid < 0) throw VNChildProcessException("launch", path, errno);
  if (pid == 0)
    execChild(path.c_str(), argv.data(), out_ ? out_->writeFd() : -1,
              err_ ? err_->writeFd() : -1, keepImmutable_, report[1]);
  pid_ = pid;
  running_ = true;
  reportWrite.reset();
  awaitExec(std::move(reportRead), path);
}

// The report pipe closes at a successful exec and carries the errno of a
// failed one; a failed child is reaped before the error is thrown.
void LinuxChildProcess::awaitExec(VNUniqueFd report, const std::string& path) {
  int error = 0;
  ssize_t count;
  do {
    count = ::read(report.get(), &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  if (count == sizeof error) {
    ::waitpid(pid_, nullptr, 0);
    running_ = false;
    throw VNChildProcessException("launch", path, error);
  }
  pidfd_.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  if (out_) out_->closeWriteEnd();
  if (err_ && err_ != out_) err_->closeWriteEnd();
}

void LinuxChildProcess::waitUntilExit() {
  if (pid_ <= 0) throw VNChildProcessException("wait for", launchPath(), ECHILD);
  if (!running_) return;
  if (pidfd_) {
    const int error = VNRunReadsUntilReadable(pidfd_.get());
    if (error != 0) throw VNChildProcessException("wait for", launchPath(), error);
  }
  int status = 0;
  pid_t result;
  do {
    result = ::waitpid(pid_, &status, 0);
  } while (result < 0 && errno == EINTR);
  if (result < 0) throw VNChildProcessException("wait for", launchPath(), errno);
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
  running_ = false;
}

}  // namespace

std::shared_ptr<VNChildProcess> VNChildProcess::create() {
  return std::make_shared<LinuxChildProcess>();
}
