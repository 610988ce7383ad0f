#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "systemview/VNSystem_FileManagerProtocol.h"
#include "systemview/VNTemplateReceipt.h"

// Raised when a query that only concrete views answer reaches the base class:
// a programming error, which nothing in the library catches. what() is the
// reason, "Concrete subclasses must implement <method>".
class VN_EXPORT VNSystem_FileManager_Kestos_Exception : public std::logic_error {
 public:
  explicit VNSystem_FileManager_Kestos_Exception(const std::string& reason) : std::logic_error(reason) {}
  static constexpr const char* name() { return "VNSystem_FileManager_Kestos_Exception"; }
};

// What every view shares whatever the disk layout: the template receipt of
// the target system and the test of whether a file is still the one the data
// template laid down. Not thread-safe: use a view from one thread at a time.
class VN_EXPORT VNSystem_FileManager_Kestos : public VNSystem_FileManagerProtocol {
 public:
  VNSystem_FileManager_Kestos() = default;
  VNSystem_FileManager_Kestos(const VNSystem_FileManager_Kestos&) = delete;
  VNSystem_FileManager_Kestos& operator=(const VNSystem_FileManager_Kestos&) = delete;

  // The receipt of the data template laid down on the target, loaded through
  // this view's path mapping on first use and kept until cleanup. Null (and
  // logged) when it cannot be loaded; a failed load is tried again next time.
  const VNTemplateReceipt* templateReceipt();
  // True when the file at `path` (as it lies now) has the checksum the
  // receipt records for `relativeTemplatePath`.
  bool matchesFileInDataTemplateWithPath(const std::string& path, const std::string& relativeTemplatePath);

  void cleanup() override;
  bool activate() override;
  std::optional<VNFileURL> pathToRemoteFile(const VNFileURL& targetPath, bool* exists, bool makeAvailable) override;
  std::optional<VNPathValues> resourceValuesForKeys(const std::vector<std::string>& keys,
                                                    const std::vector<VNFileURL>& paths, VNError* error) override;
  std::optional<VNPathValues> bundleInformationAtPaths(const std::vector<VNFileURL>& paths) override;

  // The class name of the view, as its log lines print it.
  virtual const char* className() const { return "VNSystem_FileManager_Kestos"; }

 private:
  std::unique_ptr<VNTemplateReceipt> templateReceipt_;
};
