#pragma once

#include <memory>
#include <optional>
#include <string>

#include "foundation/VNExport.h"

// What the running host says about itself: the name a person gave it, the
// firmware's model and the chassis. Where each value comes from is in
// docs/host-identity.md.
class VN_EXPORT VNHostIdentity {
 public:
  virtual ~VNHostIdentity() = default;

  // The pretty host name, else the kernel's host name; nothing when neither
  // can be read.
  virtual std::optional<std::string> computerName() = 0;
  // The firmware's product name and version; empty when the firmware gives
  // no product name.
  virtual std::string modelIdentifier() = 0;
  // The chassis word in hostnamed's vocabulary ("laptop", "server", ...);
  // nothing when neither hostnamed nor the firmware says.
  virtual std::optional<std::string> chassis() = 0;

  // The running host: hostnamed over the system bus when it answers, then the
  // files below "/".
  static std::shared_ptr<VNHostIdentity> makeDefault();
  // Only the files below `root` ("<root>/etc/machine-info",
  // "<root>/proc/sys/kernel/hostname", "<root>/sys/class/dmi/id/..."), for
  // tests that lay out a fake tree.
  static std::shared_ptr<VNHostIdentity> makeForRoot(std::string root);
};
