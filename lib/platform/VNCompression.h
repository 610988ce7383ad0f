#pragma once

#include <memory>

#include "foundation/VNExport.h"
#include "platform/VNFsStatus.h"

// Transparent in-place compression: data written to a marked regular file
// (or, for a directory, to files created in it later) is stored compressed
// by the file system. On Linux this is the compressed inode flag
// (FS_COMPR_FL), which btrfs honours; elsewhere the calls fail with ENOTSUP.
class VN_EXPORT VNCompression {
 public:
  virtual ~VNCompression() = default;

  virtual VNFsStatus isCompressed(VNAtPath item, bool* compressed) = 0;
  // False only when the file system holding `item` is known to have no
  // compression at all, so that none of its files can be compressed; true
  // where it may have (and when that can't be told).
  virtual bool fileSystemMayCompress(VNAtPath item) = 0;
  // Marks or unmarks `item`; ENOTSUP tells that its file system has no
  // compression. Data already written keeps its form.
  virtual VNFsStatus setCompressed(VNAtPath item, bool compressed) = 0;

  static std::shared_ptr<VNCompression> makeDefault();
};
