#include "foundation/VNError.h"

#include <cstring>

#include "foundation/VNFormat.h"

extern "C" {
const char* const VNLocalizedDescriptionKey = "VNLocalizedDescription";
const char* const VNFilePathErrorKey = "VNFilePath";
const char* const VNUnderlyingErrorKey = "VNUnderlyingError";
const char* const VNPOSIXErrorDomain = "VNPOSIXErrorDomain";
}

namespace {

// strerror() may fill a shared buffer (for unknown codes); errors are made
// on many threads, so use the reentrant form.
std::string errnoText(int code) {
  char buffer[128];
  return ::strerror_r(code, buffer, sizeof buffer);
}

}  // namespace

VNError::VNError(std::string domain, std::int64_t code, VNValue::Dictionary userInfo,
                 std::shared_ptr<const VNError> underlying)
    : domain_(std::move(domain)),
      code_(code),
      userInfo_(std::move(userInfo)),
      underlying_(std::move(underlying)) {}

VNError VNError::posix(int code, std::string_view path, std::string_view step) {
  std::string reason = errnoText(code);
  std::string text;
  if (!path.empty()) {
    text = VNFormat("cannot %s '%s': %s", std::string(step.empty() ? "access" : step).c_str(),
                    std::string(path).c_str(), reason.c_str());
  } else if (!step.empty()) {
    text = std::string(step) + ": " + reason;
  } else {
    text = reason;
  }
  VNValue::Dictionary info{{VNLocalizedDescriptionKey, VNValue(text)}};
  if (!path.empty()) info.emplace(VNFilePathErrorKey, VNValue(path));
  return VNError(VNPOSIXErrorDomain, code, std::move(info));
}

std::string VNError::localizedDescription() const {
  auto found = userInfo_.find(VNLocalizedDescriptionKey);
  if (found != userInfo_.end() && found->second.asString()) return *found->second.asString();
  if (domain_ == VNPOSIXErrorDomain && code_ > 0 && code_ < 4096)
    return errnoText(static_cast<int>(code_));
  return VNFormat("The operation couldn't be completed. (%s error %lld.)", domain_.c_str(),
                  static_cast<long long>(code_));
}

std::string VNError::filePath() const {
  auto found = userInfo_.find(VNFilePathErrorKey);
  return found != userInfo_.end() && found->second.asString() ? *found->second.asString()
                                                               : std::string();
}

void VNError::setUserInfoValue(std::string_view key, VNValue value) {
  userInfo_.insert_or_assign(std::string(key), std::move(value));
}

std::string VNError::description() const {
  VNValue::Dictionary shown = userInfo_;
  if (underlying_) shown.insert_or_assign(VNUnderlyingErrorKey, underlying_->description());
  return VNFormat("Error Domain=%s Code=%lld \"%s\" UserInfo=%s", domain_.c_str(),
                  static_cast<long long>(code_), localizedDescription().c_str(),
                  VNValue(std::move(shown)).description().c_str());
}
