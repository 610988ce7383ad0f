#include "common/VNFileManagerUtilities.h"

#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "foundation/VNError.h"
#include "platform/VNRemoveTree.h"

namespace VNUtilities {

bool VN_safeFileExistsAtPath(const VNFileURL& url) {
  struct stat item {};
  return !url.empty() && url.path().find('\0') == std::string::npos &&
         ::lstat(url.path().c_str(), &item) == 0;
}

bool VN_removeItemIfExistsAtURL(const VNFileURL& url, VNError* error) {
  VNError underlying;
  if (url.empty() || url.path().find('\0') != std::string::npos) {
    underlying = VNError::posix(EINVAL, url.path(), "remove");
  } else if (VNRemoveTree(url.path(), &underlying) || underlying.isPOSIX(ENOENT)) {
    if (error) *error = VNError();
    return true;
  }
  VNError failure = VNError::posix(static_cast<int>(underlying.code()), url.path(), "remove");
  failure.setUnderlyingError(std::make_shared<const VNError>(std::move(underlying)));
  VNSetError(error, std::move(failure));
  return false;
}

}  // namespace VNUtilities
