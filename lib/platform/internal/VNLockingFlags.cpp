#include "platform/internal/VNLockingFlags.h"

#include "platform/VNFileFlags.h"
#include "platform/VNPlatformService.h"

std::optional<std::uint32_t> VNLiftLockingFlags(VNAtPath item) {
  constexpr std::uint32_t kLocking = VNFileFlag::ImmutableMask | VNFileFlag::AppendOnlyMask;
  auto flags = VNPlatformSlot<VNFileFlags>::get();
  std::uint32_t word = 0;
  if (!flags->getFlags(item, &word).ok() || !(word & kLocking)) return std::nullopt;
  if (!flags->setFlags(item, word & ~kLocking).ok()) return std::nullopt;
  return word;
}

VNFsStatus VNRestoreFlags(VNAtPath item, std::uint32_t word) {
  return VNPlatformSlot<VNFileFlags>::get()->setFlags(item, word);
}
