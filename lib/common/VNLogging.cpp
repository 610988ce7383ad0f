#include "common/VNLogging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

#include "common/internal/VNLoggingState.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNBaseSystem.h"
#include "platform/VNLogFileLocation.h"
#include "platform/VNPlatformService.h"
#include "platform/VNProcessInfo.h"
#include "platform/VNSystemLog.h"

namespace {

constexpr std::string_view kChannelSubsystem = "org.varnel.kes.install";
constexpr std::string_view kChannelCategory = "Varnel";
constexpr std::string_view kClientIdentifier = "org.varnel.Varnel";
// The installation facility (14) at level error (3): 14 << 3 | 3 == 115.
constexpr int kForcedSyslogPriority = (14 << 3) | LOG_ERR;

struct LoggingState {
  // Moves from false to true only. Atomic so that a late forceUsingSyslog
  // racing with other threads' messages is still well defined.
  std::atomic<bool> forceSyslog{false};
  std::once_flag channelOnce;
  std::optional<VNSystemLogChannel> channel;
  std::once_flag fileOnce;
  VNUniqueFd file;
};

// Made on first use and deliberately never destroyed, so that threads still
// logging while the process exits never meet a torn-down state.
std::atomic<LoggingState*>& stateSlot() {
  static std::atomic<LoggingState*> slot{new LoggingState};
  return slot;
}

LoggingState& state() { return *stateSlot().load(std::memory_order_acquire); }

VNSystemLog::Level levelForType(VNLogType type) {
  switch (type) {
    case VNLogTypeError: return VNSystemLog::Level::Error;
    case VNLogTypeFault: return VNSystemLog::Level::Fault;
    case VNLogTypeDebug: return VNSystemLog::Level::Debug;
    default: return VNSystemLog::Level::Default;
  }
}

// Opens the log file for appending and gives it mode 0755 whether it was just
// made or already there. Failures of either call are ignored: the file then
// stays closed for the life of the process.
VNUniqueFd openLogFile() {
  std::string path = VNPlatformSlot<VNLogFileLocation>::get()->migrationLogPath();
  VNUniqueFd fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC, 0644));
  ::chmod(path.c_str(), 0755);
  return fd;
}

// Builds the line "%s[%d]: %@\n" (program name, process id, message) and
// hands it to the kernel in one append-mode write, so lines of concurrent
// writers never mix.
void writeLine(int fd, std::string_view message) {
  auto process = VNPlatformSlot<VNProcessInfo>::get();
  std::string line(process->programName());
  line.append("[").append(std::to_string(process->processId())).append("]: ");
  line.append(message).append("\n");
  [[maybe_unused]] ssize_t written = ::write(fd, line.data(), line.size());
}

void route(VNLogType type, std::string_view message) {
  LoggingState& s = state();
  if (s.forceSyslog.load(std::memory_order_relaxed)) {
    if (type != VNLogTypeDebug)
      VNPlatformSlot<VNSystemLog>::get()->syslog(kForcedSyslogPriority, message);
    return;
  }

  std::call_once(s.channelOnce, [&s] {
    s.channel.emplace(VNPlatformSlot<VNSystemLog>::get(), std::string(kChannelSubsystem),
                      std::string(kChannelCategory));
  });
  VNSystemLog::Level level = levelForType(type);
  if (s.channel->isLevelEnabled(level)) s.channel->log(level, message);

  if (!VNPlatformSlot<VNBaseSystem>::get()->isBaseSystem(kClientIdentifier)) return;
  std::call_once(s.fileOnce, [&s] { s.file = openLogFile(); });
  if (type <= VNLogTypeDefault && s.file) writeLine(s.file.get(), message);
}

}  // namespace

void VNLogging::logType(VNLogType type, const char*, int, std::string_view message) noexcept {
  // Logging never fails towards its caller, not even when memory runs out.
  try {
    route(type, message);
  } catch (...) {
  }
}

void VNLogging::forceUsingSyslog() noexcept {
  state().forceSyslog.store(true, std::memory_order_relaxed);
}

void VNLoggingInternal::resetProcessState() {
  delete stateSlot().exchange(new LoggingState, std::memory_order_acq_rel);
}
