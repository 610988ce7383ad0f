#pragma once

// The process-wide logging state (force flag, unified-log channel, log file)
// is made once and lives until the process ends. Tests start over with this:
// it closes the log file, forgets the channel and clears the force flag, so
// the next message sets everything up again from the current platform
// services. No thread may log while it runs.
namespace VNLoggingInternal {
void resetProcessState();
}
