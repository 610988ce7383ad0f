#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNUniqueFd.h"
#include "foundation/VNValue.h"

// Key of the information dictionary naming the bundle's main executable.
VN_EXTERN_C VN_EXPORT const char* const VNBundleExecutableKey;

class VNPlistDocument;

// A bundle folder held open, with its information dictionary as read when it
// was opened.
struct VN_EXPORT VNOpenedBundle {
  VNUniqueFd folder;
  std::shared_ptr<const VNPlistDocument> info;  // null when no layout holds a readable one

  // The information dictionary's value for `key`; empty when there is none.
  std::optional<VNValue> infoValue(const char* key) const;
  // Whether an item exists at `relativePath` below the folder (following
  // symbolic links).
  bool hasItem(const char* relativePath) const;
};

// The bundle service. A bundle directory keeps its information dictionary
// ("Info.plist", a property list holding a dictionary) in one of three
// layouts, tried in this order: "Contents/Info.plist" (the executable in
// "Contents/bin"), "Resources/Info.plist" and "Info.plist" at the top (the
// executable at the top).
class VN_EXPORT VNBundleService {
 public:
  virtual ~VNBundleService() = default;

  // The information dictionary of the bundle directory at `url`; null when
  // no layout holds a readable dictionary.
  virtual std::optional<VNValue> infoDictionary(const VNFileURL& url) = 0;
  // Opens the bundle folder at `url` afresh (following a symbolic link
  // there) and reads its information dictionary from disk now, no larger
  // than kMaxInfoBytes and resolved beneath the folder: a dictionary that is
  // a folder or a link out of the bundle counts as none. Empty when `url`
  // names no folder that can be opened.
  virtual std::optional<VNOpenedBundle> openBundle(const VNFileURL& url) = 0;
  static constexpr std::size_t kMaxInfoBytes = 1u << 20;
  // The machine architectures of the bundle's main executable (an ELF file
  // named by VNBundleExecutableKey), such as "x86_64" or "arm64"; for a file
  // rather than a bundle directory, those of the file itself. Empty when
  // there is no executable or it is not an ELF file.
  virtual std::vector<std::string> executableArchitectures(const VNFileURL& url) = 0;

  static std::shared_ptr<VNBundleService> makeDefault();
};
