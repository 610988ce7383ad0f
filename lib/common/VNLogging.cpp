#include "common/VNLogging.h"

#include "platform/VNPlatformService.h"
#include "platform/VNSystemLog.h"

// Interim routing to the unified log only; the full routing (forced syslog,
// the base-system log file) replaces this.
void VNLogging::logType(VNLogType type, const char*, int, std::string_view message) {
  auto level = type == VNLogTypeError   ? VNSystemLog::Level::Error
               : type == VNLogTypeFault ? VNSystemLog::Level::Fault
               : type == VNLogTypeDebug ? VNSystemLog::Level::Debug
                                        : VNSystemLog::Level::Default;
  auto log = VNPlatformSlot<VNSystemLog>::get();
  if (log->isLevelEnabled(level, "org.varnel.kes.install", "Varnel"))
    log->log(level, "org.varnel.kes.install", "Varnel", message);
}

void VNLogging::forceUsingSyslog() {}
