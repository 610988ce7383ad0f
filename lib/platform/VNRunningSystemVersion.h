#pragma once

#include <memory>
#include <string>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// The version of the system this process runs on, as a system-version
// dictionary: "ProductName", "ProductVersion" and, when the system names
// one, "ProductBuildVersion". On Linux it comes from os-release(5): NAME,
// VERSION_ID and BUILD_ID.
class VN_EXPORT VNRunningSystemVersion {
 public:
  virtual ~VNRunningSystemVersion() = default;

  // The dictionary; empty when nothing can be read.
  virtual VNValue versionDictionary() = 0;

  // Reads "/etc/os-release", or "/usr/lib/os-release" when that is missing.
  static std::shared_ptr<VNRunningSystemVersion> makeDefault();
  // Reads the os-release file at `path` (for tests and other roots).
  static std::shared_ptr<VNRunningSystemVersion> makeFromOSRelease(std::string path);
};
