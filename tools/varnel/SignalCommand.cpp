// varnel signal SIGNAL NAME | --all NAME | --pid PID: sends a signal to the
// process of a name (the one the lookup picks), to every process of it, or to
// one identifier. SIGNAL is a number or a name such as TERM or SIGTERM. The
// outcome is the library's log line, shown on stderr; the exit status is 0
// once the attempt was made, 2 for usage.
#include <signal.h>
#include <string.h>

#include <cstdlib>
#include <optional>

#include "Command.h"
#include "process/VNToolBox.h"

namespace varnel {
namespace {

struct SignalOptions {
  std::string signal;
  std::string name;
  bool all = false;
  std::optional<std::int32_t> pid;
};

// A signal by number (0 to SIGRTMAX) or by name, with or without "SIG".
std::optional<int> parseSignal(std::string text) {
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (!text.empty() && *end == '\0') {
    if (number < 0 || number > SIGRTMAX) return std::nullopt;
    return static_cast<int>(number);
  }
  if (text.starts_with("SIG")) text.erase(0, 3);
  for (int signal = 1; signal < NSIG; ++signal) {
    const char* abbreviation = ::sigabbrev_np(signal);
    if (abbreviation && text == abbreviation) return signal;
  }
  return std::nullopt;
}

int runSignal(const SignalOptions& options) {
  const auto signal = parseSignal(options.signal);
  if (!signal) return usageError("unknown signal '" + options.signal + "'");
  if (options.pid && options.all) return usageError("--pid and --all exclude each other");
  if (!options.pid && options.name.empty()) return usageError("a process NAME or --pid is needed");
  ::setenv("VARNEL_LOG_STDERR", "1", 1);
  const std::string name = options.name.empty() ? "(pid)" : options.name;
  if (options.pid)
    VNToolBox::sendSignal(*signal, name, *options.pid);
  else if (options.all)
    VNToolBox::sendSignalToAllProcesses(*signal, name);
  else
    VNToolBox::sendSignal(*signal, name);
  return kExitOK;
}

CommandRegistration registration("signal", [](CLI::App& app, int& status) {
  auto* command = app.add_subcommand("signal", "Send a signal to processes by name or identifier");
  auto options = std::make_shared<SignalOptions>();
  command->add_option("SIGNAL", options->signal, "Signal number or name (TERM, SIGHUP, 0)")
      ->required();
  command->add_option("NAME", options->name, "Process name: command name or executable's base name");
  command->add_flag("--all", options->all, "Signal every process of the name");
  command->add_option("--pid", options->pid, "Signal this process identifier");
  command->callback([options, &status] { status = runSignal(*options); });
});

}  // namespace
}  // namespace varnel
