#pragma once

#include <memory>

#include "foundation/VNExport.h"
#include "platform/VNFsStatus.h"

// Copy-on-write clones.
class VN_EXPORT VNClone {
 public:
  virtual ~VNClone() = default;

  // Makes `newItem` (which must not exist: EEXIST) a clone of the regular
  // file `existing`, sharing its data extents (FICLONE), with its owner,
  // permission bits, extended attributes, ACLs, times and file flags. A
  // symbolic link `existing` is followed only with `follow`; without it a
  // link is laid down as the same link. Fails, leaving nothing at
  // `newItem`, where the file system can't clone (EOPNOTSUPP, EXDEV across
  // file systems, EINVAL).
  virtual VNFsStatus clone(VNAtPath existing, VNAtPath newItem, bool follow) = 0;

  static std::shared_ptr<VNClone> makeDefault();
};
