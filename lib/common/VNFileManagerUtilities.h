#pragma once

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"

class VNError;

// File operations that answer the questions installers ask of items that may
// or may not be there.
namespace VNUtilities {

// Whether an item is at `url`, without following a final symbolic link: a
// dangling link exists. Any failure to examine the item (not only a missing
// one) counts as not existing.
VN_EXPORT bool VN_safeFileExistsAtPath(const VNFileURL& url);

// Removes the item at `url` with everything below it. An item that is
// already gone counts as removed. On failure returns false with an error
// naming `url` whose underlying error is the POSIX error of the step and path
// that failed; what could be removed before it is gone. `*error` is cleared
// on success.
VN_EXPORT bool VN_removeItemIfExistsAtURL(const VNFileURL& url, VNError* error = nullptr);

}  // namespace VNUtilities
