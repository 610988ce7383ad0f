#pragma once

#include "platform/VNCopyItem.h"
#include "platform/internal/VNContentCopy.h"

// The Linux copy of one item, shared by VNCopyItem and VNClone (a clone is a
// copy whose data may only move by FICLONE).
class VNItemCopier {
 public:
  enum class Data { AnyMethod, CloneOnly };

  // `sourceStatus` as VNCopyItem::copyItem takes it; may be null.
  VNFsStatus copy(VNAtPath source, VNAtPath destination, VNCopyOptions options, Data data,
                  const struct stat* sourceStatus = nullptr);

 private:
  VNContentMethodMemory methods_;
};
