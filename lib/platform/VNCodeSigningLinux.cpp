// The code-signing stand-in of docs/code-signing.md.
#include <sys/stat.h>

#include <cerrno>

#include "foundation/VNError.h"
#include "platform/VNCodeSigning.h"

extern "C" {
const char* const VNCodeSigningPlatformIdentifierKey = "PlatformIdentifier";
}

namespace {

class RecordCode final : public VNCodeSigning::StaticCode {
 public:
  explicit RecordCode(std::string path) : path_(std::move(path)) {}
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Only root can vouch for platform code: a record anyone else could have
// written is read without its platform identifier.
bool isTrusted(const struct stat& record) {
  return record.st_uid == 0 && !(record.st_mode & (S_IWGRP | S_IWOTH));
}

class LinuxCodeSigning final : public VNCodeSigning {
 public:
  std::unique_ptr<StaticCode> createStaticCode(const VNFileURL& url, int* status) override {
    struct stat item {};
    if (url.empty() || url.path().find('\0') != std::string::npos) {
      *status = EINVAL;
      return nullptr;
    }
    if (::lstat(url.path().c_str(), &item) != 0) {
      *status = errno;
      return nullptr;
    }
    *status = 0;
    return std::make_unique<RecordCode>(url.path());
  }

  int copySigningInformation(const StaticCode& code, std::optional<VNValue>* information) override {
    const auto& item = static_cast<const RecordCode&>(code);
    information->reset();
    for (const char* place : {"/Contents/Signature.plist", "/Signature.plist"}) {
      std::string path = item.path() + place;
      struct stat record {};
      if (::lstat(path.c_str(), &record) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) continue;
        return errno;
      }
      if (!S_ISREG(record.st_mode)) return EINVAL;
      VNError error;
      auto value = VNValue::fromPropertyListFile(path, &error);
      if (!value) return error.domain() == VNPOSIXErrorDomain && error.code() ? static_cast<int>(error.code()) : EINVAL;
      if (!value->asDictionary()) return EINVAL;
      if (!isTrusted(record)) value->asDictionary()->erase(VNCodeSigningPlatformIdentifierKey);
      *information = std::move(value);
      return 0;
    }
    return 0;
  }
};

}  // namespace

std::shared_ptr<VNCodeSigning> VNCodeSigning::makeDefault() { return std::make_shared<LinuxCodeSigning>(); }
