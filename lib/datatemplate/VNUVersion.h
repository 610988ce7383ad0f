#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// The product version and build of a system, as its version file gives them.
// A new record holds 0 in the numbers and no strings.
class VN_EXPORT VNUVersion {
 public:
  static std::shared_ptr<VNUVersion> init() { return std::make_shared<VNUVersion>(); }

  std::int64_t versionMajor() const { return versionMajor_; }
  void setVersionMajor(std::int64_t value) { versionMajor_ = value; }
  std::int64_t versionMinor() const { return versionMinor_; }
  void setVersionMinor(std::int64_t value) { versionMinor_ = value; }
  std::int64_t versionPatch() const { return versionPatch_; }
  void setVersionPatch(std::int64_t value) { versionPatch_ = value; }
  const std::optional<std::string>& versionString() const { return versionString_; }
  void setVersionString(std::optional<std::string> value) { versionString_ = std::move(value); }
  const std::optional<std::string>& buildNumber() const { return buildNumber_; }
  void setBuildNumber(std::optional<std::string> value) { buildNumber_ = std::move(value); }

  // The integer value of one version component: leading white space
  // skipped, an optional sign, then decimal digits up to the first other
  // character; 0 without digits. Values beyond the 64-bit range saturate.
  static std::int64_t componentValue(std::string_view component);

 private:
  std::int64_t versionMajor_ = 0;
  std::int64_t versionMinor_ = 0;
  std::int64_t versionPatch_ = 0;
  std::optional<std::string> versionString_;
  std::optional<std::string> buildNumber_;
};
