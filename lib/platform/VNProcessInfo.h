#pragma once

#include <sys/types.h>

#include <memory>
#include <string_view>

#include "foundation/VNExport.h"

// Facts about the running process that log lines, the task runner and host
// information report.
class VN_EXPORT VNProcessInfo {
 public:
  virtual ~VNProcessInfo() = default;

  // The program's name as the C library reports it: the last component of
  // the path it was started by (program_invocation_short_name on Linux). The
  // view stays valid while this service lives.
  virtual std::string_view programName() = 0;
  // The current process id; asked afresh each time, so it is right in a
  // child after fork().
  virtual pid_t processId() = 0;

  static std::shared_ptr<VNProcessInfo> makeDefault();
};
