#include "platform/VNLogFileLocation.h"

namespace {

class LinuxLogFileLocation final : public VNLogFileLocation {
 public:
  std::string migrationLogPath() override { return "/var/log/migration.log"; }
};

}  // namespace

std::shared_ptr<VNLogFileLocation> VNLogFileLocation::makeDefault() {
  return std::make_shared<LinuxLogFileLocation>();
}
