#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/VNUniqueFd.h"
#include "platform/VNClone.h"
#include "platform/VNCopyItem.h"

struct VNCopyTask;

// A template folder the copy walk is in and the folder laid down for it,
// both held O_PATH, so that items below them are named relative to them.
// A folder the walk is far below closes both and opens them again when the
// walk climbs back to it.
struct VNCopyFolder {
  VNCopyFolder() = default;
  VNCopyFolder(const VNCopyFolder&) = delete;
  VNCopyFolder& operator=(const VNCopyFolder&) = delete;
  ~VNCopyFolder() { close(); }

  // Holds both descriptors, counting the folder in `held` while it does.
  void open(VNUniqueFd sourceFd, VNUniqueFd destinationFd, std::size_t* held);
  void close();

  VNUniqueFd source;
  VNUniqueFd destination;
  // The laid-down folder's identity, checked when it is opened again.
  dev_t device = 0;
  ino_t inode = 0;
  std::size_t* held = nullptr;
  // Items in this folder not finished yet: those handed to the copy's
  // workers, and folders the walk has left while items in them were still
  // pending. The folder's own stat fields wait until none is left, since
  // every item created in it changes its times. Used by the walk's thread
  // only.
  int pending = 0;
  // The folder's completing visit, kept when the walk left the folder
  // while items in it were pending; it runs once the last of them is done.
  std::unique_ptr<VNCopyTask> closing;
};

// Identity of a file: inode numbers repeat across file systems, and a
// template may hold mount points.
struct VNFileID {
  dev_t device;
  ino_t inode;
  bool operator==(const VNFileID&) const = default;
};
struct VNFileIDHash {
  std::size_t operator()(const VNFileID& id) const {
    return std::hash<std::uint64_t>()(id.inode) ^ (std::hash<std::uint64_t>()(id.device) << 1);
  }
};

// Laying one template item down, other than a folder or a symbolic link into
// the template: everything the item's first visit does to the target, kept
// apart from the entry of the walk so that it can run on another thread
// after the walk has moved on. A folder's completing visit, when it has to
// wait, is kept in the same shape.
struct VNCopyTask {
  enum class Kind {
    Copy,   // copy item with the full option set
    Clone,  // remove what is there, then clone `firstCopy`
  };

  void run();

  Kind kind = Kind::Copy;
  std::shared_ptr<VNCopyFolder> folder;  // holds the item; null for the template root
  std::string name;                      // within `folder`
  std::string sourcePath;                // the walk's path of the item
  std::string destination;               // the whole destination path
  std::string firstCopy;                 // Clone: destination of the file's first name
  std::string firstCopyBelow;            // Clone: the same below the target root
  int targetRoot = -1;                   // Clone: the target root, held by the run
  struct stat status {};                 // the walk's status of the item
  int entryKind = 0;                     // the walk's entry kind (FTS_F, ...)
  // A hard-linked file's first name: later names wait for this task.
  std::optional<VNFileID> firstNameOf;
  VNCopyItem* copyItem = nullptr;
  VNClone* clone = nullptr;
  VNFsStatus result;
};
