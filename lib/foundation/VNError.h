#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// Keys of an error's user information.
VN_EXTERN_C VN_EXPORT const char* const VNLocalizedDescriptionKey;
VN_EXTERN_C VN_EXPORT const char* const VNFilePathErrorKey;
// The underlying error is held by VNError::underlyingError(); this key names
// it where user information is listed or described.
VN_EXTERN_C VN_EXPORT const char* const VNUnderlyingErrorKey;
// Domain of errors whose code is an errno value.
VN_EXTERN_C VN_EXPORT const char* const VNPOSIXErrorDomain;

// An error record: domain, code and user information (localized description,
// file path and other property-list values), with an optional underlying
// error. A value type; the underlying error is shared and immutable.
class VN_EXPORT VNError {
 public:
  VNError() = default;
  VNError(std::string domain, std::int64_t code, VNValue::Dictionary userInfo = {},
          std::shared_ptr<const VNError> underlying = nullptr);

  // A POSIX-domain error for errno `code`. With a path, the path is stored
  // under VNFilePathErrorKey and the description reads
  // "cannot <step> '<path>': <strerror>"; without, "<step>: <strerror>".
  static VNError posix(int code, std::string_view path = {}, std::string_view step = {});

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const VNValue::Dictionary& userInfo() const { return userInfo_; }
  const std::shared_ptr<const VNError>& underlyingError() const { return underlying_; }

  // The localized description entry, or a generic text built from domain and
  // code when there is none.
  std::string localizedDescription() const;
  // The file path entry, or empty.
  std::string filePath() const;
  bool isPOSIX(int code) const { return domain_ == VNPOSIXErrorDomain && code_ == code; }

  void setUserInfoValue(std::string_view key, VNValue value);
  void setUnderlyingError(std::shared_ptr<const VNError> underlying) {
    underlying_ = std::move(underlying);
  }

  // "Error Domain=<domain> Code=<code> "<description>" UserInfo={...}", the
  // text "%@" gives for an error.
  std::string description() const;

 private:
  std::string domain_;
  std::int64_t code_ = 0;
  VNValue::Dictionary userInfo_;
  std::shared_ptr<const VNError> underlying_;
};

// Stores `value` in `*out` when the caller asked for an error.
inline void VNSetError(VNError* out, VNError value) {
  if (out) *out = std::move(value);
}
