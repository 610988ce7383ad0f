#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

// The firmware-variable store. Linux: efivarfs, whose folder (by default
// /sys/firmware/efi/efivars; tests give another) holds one file
// "<name>-<vendor GUID>" per variable: a 32-bit attribute word in host byte
// order followed by the value's bytes. The library's variables live under
// its own vendor GUID, VNFirmwareVendorGUID, with the attributes
// non-volatile, boot-service and runtime access.
inline constexpr const char* VNFirmwareVendorGUID = "5c0a4e1f-8d3b-4b6e-9f27-6e1a72d0c3b8";
inline constexpr std::uint32_t VNFirmwareVariableAttributes = 0x7;

class VN_EXPORT VNFirmwareVariables {
 public:
  static std::shared_ptr<VNFirmwareVariables> makeDefault();
  virtual ~VNFirmwareVariables() = default;

  // Whether the store exists on this machine.
  virtual bool isAvailable() = 0;
  // Writes `value` as the variable `name`; 0 or an errno. A name that is
  // empty, ".", "..", or holds "/" or NUL is refused with EINVAL before
  // anything is touched. An existing variable's immutable flag (efivarfs
  // sets it on most) is lifted for the write and set again after it.
  virtual int writeVariable(std::string_view name, std::string_view value) = 0;
};

// The store over the efivarfs-like folder `root`.
VN_EXPORT std::shared_ptr<VNFirmwareVariables> VNMakeFirmwareVariables(std::string root);
