#pragma once

#include <memory>
#include <string>

#include "foundation/VNExport.h"

// Where the library's plain-text log file lives while the process runs in the
// base system. On Linux: "/var/log/migration.log".
class VN_EXPORT VNLogFileLocation {
 public:
  virtual ~VNLogFileLocation() = default;

  virtual std::string migrationLogPath() = 0;

  static std::shared_ptr<VNLogFileLocation> makeDefault();
};
