#pragma once

#include <cstdint>
#include <memory>

#include "foundation/VNExport.h"
#include "platform/VNFsStatus.h"

// Bits of the storage-tier flags word of hybrid drives.
namespace VNTierFlag {
inline constexpr std::uint64_t PinnedFast = 0x1000;
inline constexpr std::uint64_t PinnedSlow = 0x2000;
inline constexpr std::uint64_t FastPromotion = 0x20000;
inline constexpr std::uint64_t Mask = PinnedFast | PinnedSlow | FastPromotion;
}  // namespace VNTierFlag

// Per-file placement on the fast or slow tier of a hybrid drive. Linux file
// systems have no such tiers: the default implementation fails every call
// with ENOTSUP; tests install one that has them.
class VN_EXPORT VNStorageTiers {
 public:
  enum class Pin : std::uint32_t { None = 0, Fast = 1, Slow = 2 };

  virtual ~VNStorageTiers() = default;

  virtual VNFsStatus getTierFlags(VNAtPath item, bool follow, std::uint64_t* flags) = 0;
  virtual VNFsStatus setFastPromotion(VNAtPath item, bool promote, bool follow) = 0;
  virtual VNFsStatus setPin(VNAtPath item, Pin pin, bool follow) = 0;

  static std::shared_ptr<VNStorageTiers> makeDefault();
};
