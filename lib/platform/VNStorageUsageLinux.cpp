// The Linux storage-usage service over VNStorageProbe.
#include "platform/internal/VNStorageProbeLinux.h"

namespace {

class LinuxStorageUsage final : public VNStorageUsage {
 public:
  VNStorageValues valuesOfItem(const std::string& path, VNError* error) override {
    int failure = 0;
    VNStorageValues values = VNStorageProbe::readItem(path, &failure);
    if (values.type == VNStorageValues::Type::Unknown)
      VNSetError(error, VNError::posix(failure, path, "read attributes of"));
    return values;
  }

  void walk(const std::string& root, const Visitor& visit, const ErrorHandler& onError) override {
    VNStorageProbe::walk(root, visit, onError);
  }
};

}  // namespace

std::shared_ptr<VNStorageUsage> VNStorageUsage::makeDefault() {
  return std::make_shared<LinuxStorageUsage>();
}
