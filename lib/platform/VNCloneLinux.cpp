// Copy-on-write clones on Linux: FICLONE and the metadata of a full copy.
#include "platform/VNClone.h"
#include "platform/internal/VNItemCopier.h"

namespace {

class LinuxClone final : public VNClone {
 public:
  VNFsStatus clone(VNAtPath existing, VNAtPath newItem, bool follow) override {
    VNCopyOptions options = VNCopyOption::Data | VNCopyOption::ACL | VNCopyOption::Xattr |
                            VNCopyOption::Stat;
    if (!follow) options = options | VNCopyOption::NoFollow;
    return copier_.copy(existing, newItem, options, VNItemCopier::Data::CloneOnly);
  }

 private:
  VNItemCopier copier_;
};

}  // namespace

std::shared_ptr<VNClone> VNClone::makeDefault() { return std::make_shared<LinuxClone>(); }
