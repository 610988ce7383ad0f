#pragma once

#include <optional>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

// Helpers on file URLs. Each returns a new value and leaves its receiver
// unchanged; none reports errors or keeps state, and all may be called from
// any thread at once.
namespace VNUtilities {

// The canonical form of `url`: "." and empty components dropped, ".." taken
// against the component before it, and a leading "/private" dropped when the
// path without it names an existing item. With `expandSymlinks`, every
// symbolic link in the part of the path that exists is resolved (a dangling
// final link counts as existing) and the missing trailing components are
// appended again unresolved. Then, when the top-level item of the path (say
// "/var") is a symbolic link whose target begins with "private" or
// "/private", the path is put back below "/private". A `url` whose string
// ends in "/" gives a result that does too. An empty `url` gives an empty one.
VN_EXPORT VNFileURL VN_URLByStandardizingPathAndFullyExpandSymlinks(const VNFileURL& url,
                                                                    bool expandSymlinks);
// The canonical form without link expansion.
VN_EXPORT VNFileURL VN_URLByStandardizingPath(const VNFileURL& url);

// `relative`'s path placed below `url` ("/srv/target" and "/Users/a" give
// "/srv/target/Users/a"), a directory URL exactly when `relative` is one, in
// canonical form without link expansion. A ".." in `relative` is applied like
// any other, so it can climb above `url`: callers that must stay inside `url`
// check the result.
VN_EXPORT VNFileURL VN_URLByAppendingRelativePath(const VNFileURL& url, const VNFileURL& relative);

// The directory URL of the mount point of the volume holding the item at
// `url` (a final symbolic link is followed); null when it cannot be examined.
VN_EXPORT std::optional<VNFileURL> pathMountPoint(const VNFileURL& url);

// The raw 32-byte SHA-256 digest of the contents of the file at `url`
// (a final symbolic link is followed; a FIFO is read until its writers close
// it). Null when the file cannot be opened; a read failure part-way gives the
// digest of the bytes read before it.
VN_EXPORT std::optional<VNValue::Data> VN_fileChecksum(const VNFileURL& url);

// VN_pathRefersToFSRoot of the URL's path.
VN_EXPORT bool VN_pathRefersToFSRoot(const VNFileURL& url);

}  // namespace VNUtilities
