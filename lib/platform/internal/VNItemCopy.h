#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/internal/VNItemCopier.h"
#include "platform/internal/VNItemFd.h"

// One end of an item copy: the item held open, with what statx said of it.
struct VNItemSide {
  VNUniqueFd fd;
  bool pathOnly = true;  // fd is O_PATH
  struct statx sx {};
  struct stat st {};

  VNHeldFd held() const { return {fd.get(), pathOnly}; }
  // Holds `fd` and reads its status; 0 or the errno of statx.
  int hold(VNUniqueFd newFd, bool isPathOnly);
};

// Removes the item a failed copy created, unless dismissed.
class VNCreatedItem {
 public:
  explicit VNCreatedItem(VNAtPath item) : item_(item) {}
  ~VNCreatedItem();
  VNCreatedItem(const VNCreatedItem&) = delete;
  VNCreatedItem& operator=(const VNCreatedItem&) = delete;

  void created(bool directory) {
    created_ = true;
    directory_ = directory;
  }
  void dismiss() { created_ = false; }
  bool active() const { return created_; }

 private:
  VNAtPath item_;
  bool created_ = false;
  bool directory_ = false;
};

// The copy of one item: laying it down (VNItemCopy.cpp), then carrying its
// metadata over (VNItemMetadata.cpp). Every call works on descriptors held
// for the whole copy, so the item is looked up by path only once at each end.
class VNItemCopy {
 public:
  VNItemCopy(VNAtPath source, VNAtPath destination, VNCopyOptions options)
      : source_(source), destination_(destination), options_(options), created_(destination) {}

  VNFsStatus run(VNItemCopier::Data data, VNContentMethodMemory* methods, const struct stat* sourceStatus);

 private:
  VNFsStatus fail(int code, std::string step, VNAtPath item) const {
    return VNFsStatus::failure(code, std::move(step), item.path);
  }
  bool has(VNCopyOption option) const { return VNHasOption(options_, option); }

  // Laying down.
  VNFsStatus openSource(const struct stat* sourceStatus);
  bool openKnownFile(const struct stat* sourceStatus);
  VNFsStatus openDestination();
  VNFsStatus holdDestination(VNUniqueFd fd, bool pathOnly);
  VNFsStatus create(VNItemCopier::Data data, VNContentMethodMemory* methods);
  VNFsStatus createItem(const std::function<bool()>& make, const char* step);
  VNFsStatus createLink();
  VNFsStatus createSpecial();
  VNFsStatus createDirectory();
  VNFsStatus openCreatedDirectory();
  VNFsStatus createFile(VNItemCopier::Data data, VNContentMethodMemory* methods);
  VNFsStatus openExistingFile(int* fd);
  VNFsStatus removeExisting();
  VNFsStatus keepCompression(int destinationFd);
  VNFsStatus copyContent(VNItemCopier::Data data, VNContentMethodMemory* methods);

  // Metadata.
  VNFsStatus carryMetadata();
  VNFsStatus carrySteps(bool stat);
  VNFsStatus unlockExisting(std::optional<std::uint32_t>* lockedWord);
  VNFsStatus setOwner();
  VNFsStatus setMode();
  VNFsStatus copyAttributes();
  VNFsStatus removeExtraAcls(const std::vector<std::string>& sourceNames);
  VNFsStatus setTimes();
  VNFsStatus sourceFlags(std::uint32_t* word);
  VNFsStatus setFlags();

  VNAtPath source_;
  VNAtPath destination_;
  VNCopyOptions options_;
  VNCreatedItem created_;
  VNItemSide from_;
  VNItemSide to_;
  bool ownerChanged_ = false;
  // Whether the source's attribute names were listed, and whether the flags
  // attribute was among them.
  bool namesListed_ = false;
  bool flagsAttributeListed_ = false;
};
