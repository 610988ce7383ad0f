// varnel run [--estimate SECONDS] [--keep-protection] -- PROGRAM ARGS...:
// runs a helper program through the task runner. Its output lines reach the
// journal and stderr behind "PROGRAM: "; with an estimate, a progress bar on
// a terminal advances a second at a time. The exit status is the program's
// (1 when it could not be run, 2 for usage).
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "Command.h"
#include "StderrRelay.h"
#include "foundation/VNProgress.h"
#include "foundation/VNQueue.h"
#include "platform/VNChildProcess.h"
#include "process/VNTask.h"

namespace varnel {
namespace {

// The parent progress's units: fine enough for a bar, and at least one unit
// so that any positive estimate is tracked.
constexpr std::int64_t kProgressUnits = 1000;

struct RunOptions {
  double estimate = 0;
  bool keepProtection = false;
  std::vector<std::string> command;
};

std::string barText(const VNProgress& progress, double estimate) {
  const double fraction = progress.fractionCompleted();
  const int filled = static_cast<int>(fraction * 30);
  return fmt::format("[{:<30}] {:3.0f}% of ~{:.0f}s", std::string(filled, '#'), fraction * 100,
                     estimate);
}

// The program is run by its path, not searched for. Checking it here gives
// the same refusal whether or not the launcher stands in between (which
// would otherwise exit 127 on the program's behalf).
bool checkRunnable(const std::string& path) {
  struct stat status {};
  int error = 0;
  if (::stat(path.c_str(), &status) != 0)
    error = errno;
  else if (!S_ISREG(status.st_mode))
    error = EACCES;
  else if (::access(path.c_str(), X_OK) != 0)
    error = errno;
  if (error == 0) return true;
  std::fprintf(stderr, "varnel: cannot run '%s': %s\n", path.c_str(), std::strerror(error));
  return false;
}

int runProgram(const RunOptions& options) {
  if (options.estimate < 0) return usageError("--estimate must not be negative");
  if (!checkRunnable(options.command.front())) return kExitFailed;
  // The runner's log lines reach stderr as well as the journal.
  ::setenv("VARNEL_LOG_STDERR", "1", 1);
  auto child = VNChildProcess::create();
  child->setLaunchPath(options.command.front());
  child->setArguments({options.command.begin() + 1, options.command.end()});
  auto runner = VNTask::initWithTask(child, /*allowWARD=*/options.keepProtection);
  if (!runner->task()) {
    std::fprintf(stderr, "varnel: the launcher drop_ward was not found; see docs/task-runner.md\n");
    return kExitFailed;
  }
  auto progress = VNProgress::create(kProgressUnits);
  std::function<std::string()> bar;
  if (options.estimate > 0) {
    runner->setEstimatedTimeToComplete(options.estimate);
    runner->setParentProgress(progress);
    runner->setParentProgressPendingUnits(kProgressUnits);
    runner->setParentProgressQueue(VNQueue::create("org.varnel.tool.run-progress"));
    bar = [progress, estimate = options.estimate] { return barText(*progress, estimate); };
  }
  bool launched = true;
  {
    StderrRelay relay(bar);
    launched = runner->run() || runner->terminationStatus() != 0;
  }
  if (!launched) return kExitFailed;
  return runner->terminationStatus();
}

CommandRegistration registration("run", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand("run", "Run a helper program and relay its output to the log");
  auto options = std::make_shared<RunOptions>();
  command->add_option("--estimate", options->estimate,
                      "Expected running time in seconds: shows a progress bar on a terminal");
  command->add_flag("--keep-protection", options->keepProtection,
                    "Run the program directly, with the integrity protection in force");
  command->add_option("PROGRAM", options->command, "The program's path and its arguments")
      ->required();
  command->prefix_command(false);
  command->callback([options, &status] { status = runProgram(*options); });
});

}  // namespace
}  // namespace varnel
