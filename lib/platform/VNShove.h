#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "foundation/VNExport.h"

// Option bits of a shove request.
// Merge a source folder into a folder of the same name that already exists at
// the destination, instead of failing on it.
inline constexpr std::uint32_t VNShoveMergeFolders = 0x10;
// Replace a non-folder item at the destination by the source item of the same
// name. A folder at the destination is never replaced by a non-folder.
inline constexpr std::uint32_t VNShoveReplaceItems = 0x20;

// Levels passed to a shove's log callback.
inline constexpr int VNShoveLogInfo = 0;
inline constexpr int VNShoveLogError = 2;

// Moves the contents of one folder tree onto another on the same file system
// by rename(2), merging into folders that already exist there. Items of the
// destination that the source does not have are never touched.
//
// Each source item is renamed into place whole when nothing of its name is at
// the destination. When something is, a folder onto a folder is merged
// (VNShoveMergeFolders), a non-folder item replaces a non-folder item, or a
// folder replaces a non-folder item (VNShoveReplaceItems); a non-folder item
// never replaces a folder. Without the needed option bit the shove stops at
// that item with EEXIST. Merged folders keep the destination's own attributes.
// What was moved before a failure stays moved; what was not stays in the
// source. Symbolic links are moved as links, never followed.
//
// With `keepReplacedIn` set, nothing of the destination is deleted: an item
// being replaced is first moved to that folder (a path relative to the
// destination, created with mode 0700 when first needed), at its own path
// relative to the destination, and with VNShoveReplaceItems a folder where
// the source has a non-folder item is moved there too, so that the source's
// item takes its place. Each such move is logged at VNShoveLogInfo. An item
// that is what the source brings (same kind, size, modification time, mode
// and owner, and for a link the same target; what an earlier shove of the
// same source laid down) is replaced without being kept.
struct VNShoveRequest {
  std::string source;
  std::string destination;
  std::uint32_t options = 0;
  std::string keepReplacedIn;
};

class VN_EXPORT VNShove {
 public:
  using LogCallback = std::function<void(int level, const std::string& message)>;

  virtual ~VNShove() = default;

  // Returns 0, or the errno that stopped the shove (EXDEV when source and
  // destination lie on different file systems). Every failure is also
  // reported to `log` at VNShoveLogError with the paths involved.
  [[nodiscard]] virtual int shove(const VNShoveRequest& request, const LogCallback& log) = 0;

  static std::shared_ptr<VNShove> makeDefault();
};
