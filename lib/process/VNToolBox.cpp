#include "process/VNToolBox.h"

#include <signal.h>

#include <cerrno>

#include "platform/VNPlatformService.h"
#include "platform/VNProcessLookup.h"
#include "process/internal/VNProcessLog.h"

void VNToolBox::sendSignal(std::int32_t signal, const std::string& processName, std::int32_t pid) {
  if (pid <= 0) {
    VNProcessLog(VNLogTypeFault, "Process %@ (%d) is not a running process", processName, pid);
    return;
  }
  if (::kill(pid, signal) != 0) {
    const long error = errno;
    VNProcessLog(VNLogTypeFault, "Could not send signal (%d) to process %@ (%d): %ld", signal,
              processName, pid, error);
    return;
  }
  VNProcessLog(VNLogTypeFault, "Signal %d sent to %@ (%d)", signal, processName, pid);
}

void VNToolBox::sendSignal(std::int32_t signal, const std::string& processName) {
  const pid_t pid = VNPlatformSlot<VNProcessLookup>::get()->processIdentifierForName(processName);
  sendSignal(signal, processName, pid);
}

void VNToolBox::sendSignalToAllProcesses(std::int32_t signal, const std::string& processName) {
  const auto pids = VNPlatformSlot<VNProcessLookup>::get()->processIdentifiersForName(processName);
  for (pid_t pid : pids) sendSignal(signal, processName, pid);
}
