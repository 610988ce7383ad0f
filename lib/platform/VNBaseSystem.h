#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// Answers whether the process runs in the base system: the installer and
// recovery environment, as opposed to an installed system.
//
// The Linux rule: the process runs in the base system when the marker file
// "/etc/initrd-release" exists (a symbolic link counts when its target does).
// Installer and recovery images boot into an initial RAM file system, which
// carries that file; an installed system's root never does. The answer is
// read once, when the service is made, since a process does not move between
// the two.
class VN_EXPORT VNBaseSystem {
 public:
  virtual ~VNBaseSystem() = default;

  // `clientIdentifier` names the asking library or program in reverse-DNS
  // form; the Linux rule gives every client the same answer.
  virtual bool isBaseSystem(std::string_view clientIdentifier) = 0;

  // The Linux rule with the marker "/etc/initrd-release".
  static std::shared_ptr<VNBaseSystem> makeDefault();
  // The Linux rule with another marker file, for images that mark the base
  // system elsewhere and for tests of the rule itself.
  static std::shared_ptr<VNBaseSystem> makeWithMarker(const std::string& markerPath);
};
