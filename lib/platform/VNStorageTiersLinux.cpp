// No Linux file system places files on storage tiers.
#include <cerrno>

#include "platform/VNStorageTiers.h"

namespace {

class LinuxStorageTiers final : public VNStorageTiers {
 public:
  VNFsStatus getTierFlags(VNAtPath item, bool, std::uint64_t*) override {
    return VNFsStatus::failure(ENOTSUP, "read storage-tier flags of", item.path);
  }
  VNFsStatus setFastPromotion(VNAtPath item, bool, bool) override {
    return VNFsStatus::failure(ENOTSUP, "set fast promotion of", item.path);
  }
  VNFsStatus setPin(VNAtPath item, Pin, bool) override {
    return VNFsStatus::failure(ENOTSUP, "pin", item.path);
  }
};

}  // namespace

std::shared_ptr<VNStorageTiers> VNStorageTiers::makeDefault() {
  return std::make_shared<LinuxStorageTiers>();
}
