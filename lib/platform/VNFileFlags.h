#pragma once

#include <cstdint>
#include <memory>

#include "foundation/VNExport.h"
#include "platform/VNFsStatus.h"

// Bits of the file-flags word (the BSD st_flags layout, which templates and
// the copy engine's masks use).
namespace VNFileFlag {
inline constexpr std::uint32_t NoDump = 0x00000001;
inline constexpr std::uint32_t UserImmutable = 0x00000002;
inline constexpr std::uint32_t UserAppendOnly = 0x00000004;
inline constexpr std::uint32_t Compressed = 0x00000020;
inline constexpr std::uint32_t SystemImmutable = 0x00020000;
inline constexpr std::uint32_t SystemAppendOnly = 0x00040000;
// The two integrity-protection (WARD) bits.
inline constexpr std::uint32_t Restricted = 0x00080000;
inline constexpr std::uint32_t NoUnlink = 0x00100000;
inline constexpr std::uint32_t WARDMask = Restricted | NoUnlink;
inline constexpr std::uint32_t ImmutableMask = UserImmutable | SystemImmutable;
inline constexpr std::uint32_t AppendOnlyMask = UserAppendOnly | SystemAppendOnly;
}  // namespace VNFileFlag

// Name of the extended attribute that keeps the bits Linux has no inode flag
// for: "trusted.varnel.flags", the word as text "0x%08x".
VN_EXTERN_C VN_EXPORT const char* const VNFileFlagsAttributeName;

// The file-flags word of an item (stat's st_flags and lchflags elsewhere).
// On Linux, on regular files and directories, no-dump, immutable,
// append-only and compressed are the inode flags (FS_IOC_GETFLAGS/SETFLAGS);
// every other bit, and which of the user and system spellings an immutable or
// append-only flag has, lives in VNFileFlagsAttributeName. Symbolic links and
// special files have no reachable inode flags, so their whole word lives in
// the attribute. Writing the attribute needs root (CAP_SYS_ADMIN); without it
// the attribute reads as absent. Symbolic links are never followed.
class VN_EXPORT VNFileFlags {
 public:
  virtual ~VNFileFlags() = default;

  // Reads the merged word into `*flags` (untouched on failure). A file
  // system without inode flags contributes none.
  virtual VNFsStatus getFlags(VNAtPath item, std::uint32_t* flags) = 0;
  // Sets the word exactly. The attribute is written while the immutable and
  // append-only inode flags are off (the kernel refuses attribute changes
  // while they are on) and those flags are set last. Fails with EOPNOTSUPP
  // when an inode flag is asked for where the file system has none. On
  // failure the item may hold the attribute part of the new word with the
  // inode flags of the old one minus immutable and append-only.
  virtual VNFsStatus setFlags(VNAtPath item, std::uint32_t flags) = 0;

  static std::shared_ptr<VNFileFlags> makeDefault();
};
