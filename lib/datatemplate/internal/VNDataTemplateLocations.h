#pragma once

#include <cstdlib>
#include <memory>
#include <string>

// Fixed places of the data-template subsystem, relative to a system root or
// to a template or target folder.
namespace VNDataTemplateLocations {

// Below a system root.
inline constexpr const char* kDataTemplate = "System/Library/Templates/Data";
inline constexpr const char* kSymlinkPatternsManifest = "System/Library/Templates/Data.symlink-patterns";
inline constexpr const char* kSystemVersionFile = "System/Library/Baseworks/SystemVersion.plist";
// Below a template or a target folder.
inline constexpr const char* kReceiptsFolder = "Library/Veltra/System/Library/Receipts";
// At the top of a data volume, during and after an installation.
inline constexpr const char* kTemporaryFolder = ".DTemplateInstantiation";
inline constexpr const char* kInstallationLock = ".DTemplateInstantiation.lock";
inline constexpr const char* kHeldReceipts = ".DTemplateInstantiation.receipts";
inline constexpr const char* kReplacedItems = ".DTemplateReplacedItems";

}  // namespace VNDataTemplateLocations

// `path` with every link in it resolved; the path as given when it cannot be.
inline std::string VNResolvedPath(const std::string& path) {
  std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  return resolved ? std::string(resolved.get()) : path;
}
