// Copying one item on Linux.
#include "platform/VNCopyItem.h"
#include "platform/internal/VNItemCopier.h"

namespace {

class LinuxCopyItem final : public VNCopyItem {
 public:
  VNFsStatus copyItem(VNAtPath source, VNAtPath destination, VNCopyOptions options,
                      const struct stat* sourceStatus) override {
    return copier_.copy(source, destination, options, VNItemCopier::Data::AnyMethod, sourceStatus);
  }

 private:
  VNItemCopier copier_;
};

}  // namespace

std::shared_ptr<VNCopyItem> VNCopyItem::makeDefault() { return std::make_shared<LinuxCopyItem>(); }
