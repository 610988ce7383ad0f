#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

class VNError;

// Orders file URLs by path, then folder URLs after file URLs of the same path,
// so that a URL given as a key is found again exactly as it was given.
struct VN_EXPORT VNFileURLOrder {
  bool operator()(const VNFileURL& a, const VNFileURL& b) const;
};

// Answers of the list queries: one value per target path, keyed by the very
// URL the caller passed.
using VNPathValues = std::map<VNFileURL, VNValue, VNFileURLOrder>;

// One view of a system that is usually not the running one. Target paths are
// absolute paths as seen from inside that system ("/Users", "/Library/x");
// the view says where they lie on the host now.
class VN_EXPORT VNSystem_FileManagerProtocol {
 public:
  virtual ~VNSystem_FileManagerProtocol() = default;

  // Makes the view ready for use; true when it is.
  virtual bool activate() = 0;
  // Drops cached state.
  virtual void cleanup() = 0;
  // Where `targetPath` lies on disk now, or null when the view cannot place
  // it. With `exists`, also whether an item is there. `makeAvailable` asks
  // that the item be made available; no view of ours needs to.
  virtual std::optional<VNFileURL> pathToRemoteFile(const VNFileURL& targetPath, bool* exists,
                                                    bool makeAvailable) = 0;
  // The resource values (docs/resource-values.md) of each target path; a path
  // whose values cannot be read has no entry. `error` is never written.
  virtual std::optional<VNPathValues> resourceValuesForKeys(const std::vector<std::string>& keys,
                                                            const std::vector<VNFileURL>& paths,
                                                            VNError* error) = 0;
  // The bundle information of each target path; every path gets an entry,
  // empty when no bundle can be opened there.
  virtual std::optional<VNPathValues> bundleInformationAtPaths(const std::vector<VNFileURL>& paths) = 0;

  virtual bool isFileSystemReady() = 0;
  virtual std::optional<VNFileURL> slash() = 0;
  virtual std::optional<VNFileURL> userContentRoot() = 0;
  virtual std::optional<VNFileURL> userHomeRoot() = 0;
  virtual std::optional<std::string> productVersion() = 0;
  virtual std::optional<std::string> buildVersion() = 0;
};
