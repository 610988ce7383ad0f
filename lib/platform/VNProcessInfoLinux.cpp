#include <errno.h>
#include <unistd.h>

#include "platform/VNProcessInfo.h"

namespace {

class LinuxProcessInfo final : public VNProcessInfo {
 public:
  std::string_view programName() override { return program_invocation_short_name; }
  pid_t processId() override { return ::getpid(); }
};

}  // namespace

std::shared_ptr<VNProcessInfo> VNProcessInfo::makeDefault() {
  return std::make_shared<LinuxProcessInfo>();
}
