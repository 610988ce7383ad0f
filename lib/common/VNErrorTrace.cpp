#include "common/VNGeneralUtilities.h"
#include "foundation/VNFormat.h"

const char* const VNMessageTracerErrorStringKey = "VNMessageTracerErrorString";
const char* const VNLatticeErrorDomain = "org.varnel.Lattice";

namespace VNUtilities {

VNError originalUnderlyingErrorForError(const VNError& error) {
  std::string trace = VNFormat("%@:%ld", error.domain(), error.code());
  const VNError* root = &error;
  while (const auto& nested = root->underlyingError()) {
    if (nested->domain() == VNLatticeErrorDomain)
      trace += VNFormat("-%@:%ld:%@", nested->domain(), nested->code(),
                        nested->localizedDescription());
    else
      trace += VNFormat("-%@:%ld", nested->domain(), nested->code());
    root = nested.get();
  }
  if (root->userInfo().contains(VNMessageTracerErrorStringKey)) return *root;
  VNValue::Dictionary userInfo;
  userInfo.emplace(VNMessageTracerErrorStringKey, VNValue(trace));
  return VNError(root->domain(), root->code(), std::move(userInfo));
}

}  // namespace VNUtilities
