#pragma once

#include <memory>

#include "foundation/VNSharedSlot.h"
#include "systemview/VNSystem_FileManager_Kestos.h"

// The view of a target system whose file systems are mounted on this host,
// reached through its root folder. Answers what follows from the root alone
// (folders, version file, readiness); the path queries answer null here and
// are given by the concrete views. The root may be read and replaced from
// any thread.
class VN_EXPORT VNSystem_FileManager_DiskBased : public VNSystem_FileManager_Kestos {
 public:
  // The right concrete view for `root`: the paired-volume view when the root
  // lies on a system or data volume of a pair, otherwise the one-volume view.
  // Null when the paired-volume view cannot place the root.
  static std::unique_ptr<VNSystem_FileManager_DiskBased> appropriateDiskFileMangerForSystemRoot(
      const VNFileURL& root);
  // A view at `root`; a null root is logged and gives a view that is not ready.
  static std::unique_ptr<VNSystem_FileManager_DiskBased> initAtRoot(std::optional<VNFileURL> root);

  std::optional<std::string> productVersion() override;
  std::optional<std::string> buildVersion() override;
  bool isFileSystemReady() override;
  std::optional<VNFileURL> slash() override;
  std::optional<VNFileURL> userContentRoot() override;
  std::optional<VNFileURL> userHomeRoot() override;
  bool activate() override;
  void cleanup() override;
  std::optional<VNFileURL> pathToRemoteFile(const VNFileURL& targetPath, bool* exists, bool makeAvailable) override;
  std::optional<VNPathValues> resourceValuesForKeys(const std::vector<std::string>& keys,
                                                    const std::vector<VNFileURL>& paths, VNError* error) override;
  std::optional<VNPathValues> bundleInformationAtPaths(const std::vector<VNFileURL>& paths) override;

  const char* className() const override { return "VNSystem_FileManager_DiskBased"; }
  std::optional<VNFileURL> root() const;
  void setRoot(std::optional<VNFileURL> root);

 protected:
  VNSystem_FileManager_DiskBased() = default;
  // Stores the root, logging a null one.
  void storeInitialRoot(std::optional<VNFileURL> root);
  // The two list queries as the concrete views answer them: each path placed
  // below the root as handed in (never switching volumes). Every path gets
  // bundle information, empty when no bundle can be opened there.
  VNPathValues resourceValuesBelowRoot(const std::vector<std::string>& keys,
                                       const std::vector<VNFileURL>& paths) const;
  VNPathValues bundleInformationBelowRoot(const std::vector<VNFileURL>& paths) const;

 private:
  std::optional<std::string> versionFileString(const char* key);
  // Each path placed below the root, answered by `answer` into its second
  // argument; a false answer leaves no entry.
  VNPathValues valuesBelowRoot(const std::vector<VNFileURL>& paths,
                               const std::function<bool(const VNFileURL&, VNValue&)>& answer) const;
  VNSharedSlot<VNFileURL> root_;
};
