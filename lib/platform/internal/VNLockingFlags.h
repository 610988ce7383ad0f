#pragma once

#include <cstdint>
#include <optional>

#include "platform/VNFsStatus.h"

// The immutable and append-only flags refuse the removal, renaming and
// metadata changes of the item that has them (and, on a folder, changes to
// its entries). Operations that must move or remove such an item lift them
// for their own change and put them back on what remains.

// Lifts those flags from `item` (never following a final symbolic link) and
// returns its whole word as it was; nullopt when it had none or its flags
// could not be read or written.
[[nodiscard]] std::optional<std::uint32_t> VNLiftLockingFlags(VNAtPath item);

// Puts a word returned by VNLiftLockingFlags back on `item`.
VNFsStatus VNRestoreFlags(VNAtPath item, std::uint32_t word);
