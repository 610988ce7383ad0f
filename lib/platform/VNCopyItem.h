#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>

#include "foundation/VNExport.h"
#include "platform/VNFsStatus.h"

// What a copy of one item carries over.
enum class VNCopyOption : std::uint32_t {
  // A regular file gets the source's contents (a clone where the two file
  // systems can, else copy_file_range, else read and write; holes stay
  // holes); a directory is created when absent; a symbolic link is created
  // with the source's target; a FIFO, socket or device node is created as
  // the same kind (device nodes need root). Without it the destination must
  // exist.
  Data = 1u << 0,
  // The POSIX ACLs (system.posix_acl_access and _default). An ACL the
  // destination has and the source lacks, such as one inherited from a
  // parent's default ACL, is removed.
  ACL = 1u << 1,
  // Every other extended attribute of the user, trusted, security and system
  // namespaces, except the file-flags attribute, which travels with Stat.
  Xattr = 1u << 2,
  // Owner, group, permission bits, access and modification times and the
  // file-flags word.
  Stat = 1u << 3,
  // An existing destination is removed first (an empty directory too; an
  // existing directory stays when the source is a directory).
  UnlinkFirst = 1u << 4,
  // A symbolic link as source is copied as itself. The destination is never
  // followed, with or without this option.
  NoFollow = 1u << 5,
};

using VNCopyOptions = std::uint32_t;
constexpr VNCopyOptions operator|(VNCopyOption a, VNCopyOption b) {
  return static_cast<VNCopyOptions>(a) | static_cast<VNCopyOptions>(b);
}
constexpr VNCopyOptions operator|(VNCopyOptions a, VNCopyOption b) {
  return a | static_cast<VNCopyOptions>(b);
}
constexpr bool VNHasOption(VNCopyOptions options, VNCopyOption option) {
  return (options & static_cast<VNCopyOptions>(option)) != 0;
}

// The option sets the template copy engine uses.
namespace VNCopyOptionSet {
// A directory on its first visit: its stat fields follow after its contents.
inline constexpr VNCopyOptions Directory =
    VNCopyOption::Data | VNCopyOption::ACL | VNCopyOption::Xattr | VNCopyOption::NoFollow;
// Every other item on its first visit.
inline constexpr VNCopyOptions Full = Directory | VNCopyOption::Stat | VNCopyOption::UnlinkFirst;
// Carrying the stat fields over onto an item already laid down.
inline constexpr VNCopyOptions StatOnly = VNCopyOption::Stat | VNCopyOption::NoFollow;
}  // namespace VNCopyOptionSet

// Copies one item (never what is below a directory). Steps run in the order
// the kernel needs: content, owner, permission bits (a change of owner
// clears set-id bits), extended attributes and ACLs, times, and the file
// flags last (immutable and append-only refuse every later change).
class VN_EXPORT VNCopyItem {
 public:
  virtual ~VNCopyItem() = default;

  // On failure returns the errno with the step and the path that failed; an
  // item this call created is removed again, while an item it removed under
  // UnlinkFirst stays removed.
  //
  // `sourceStatus` is what the caller's own walk read of the source with
  // NoFollow, if anything. A regular file there is opened for reading at
  // once instead of being held first and opened again; should it have been
  // replaced by another kind meanwhile, the item is copied as what it now is.
  virtual VNFsStatus copyItem(VNAtPath source, VNAtPath destination, VNCopyOptions options,
                              const struct stat* sourceStatus = nullptr) = 0;

  static std::shared_ptr<VNCopyItem> makeDefault();
};
