#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

// Resource keys the library answers for an item (docs/resource-values.md).
// Each is the key's own name in the answer's dictionary.
namespace VNResourceKey {
inline constexpr const char* kName = "name";
inline constexpr const char* kIsDirectory = "isDirectory";
inline constexpr const char* kIsRegularFile = "isRegularFile";
inline constexpr const char* kIsSymbolicLink = "isSymbolicLink";
inline constexpr const char* kFileSize = "fileSize";
inline constexpr const char* kAllocatedSize = "allocatedSize";
inline constexpr const char* kCreationDate = "creationDate";
inline constexpr const char* kModificationDate = "modificationDate";
inline constexpr const char* kInode = "inode";
inline constexpr const char* kLinkCount = "linkCount";
inline constexpr const char* kOwnerID = "ownerID";
inline constexpr const char* kGroupID = "groupID";
inline constexpr const char* kPermissions = "permissions";
}  // namespace VNResourceKey

// Reads resource values of items on this host.
class VN_EXPORT VNResourceValues {
 public:
  virtual ~VNResourceValues() = default;

  // The values of `keys` for the item at `url` itself (a final symbolic link
  // is not followed), from one examination of it. Unknown keys, and values
  // the file system does not keep (a creation date), are left out. Null when
  // the item cannot be examined.
  virtual std::optional<VNValue::Dictionary> valuesForKeys(const VNFileURL& url,
                                                           const std::vector<std::string>& keys) = 0;

  static std::shared_ptr<VNResourceValues> makeDefault();
};
