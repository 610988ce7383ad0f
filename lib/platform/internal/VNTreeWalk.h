#pragma once

#include <fts.h>
#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <vector>

#include "platform/VNFsStatus.h"
#include "platform/internal/VNFolderTrail.h"

// One item a VNTreeWalk reaches; valid until the next read.
struct VNTreeEntry {
  // What the item is, in fts's values: FTS_D (a folder, before its
  // contents), FTS_DP (the same folder after them), FTS_F, FTS_SL,
  // FTS_DEFAULT (any other kind), FTS_DC (a folder that holds itself
  // through a mount, not entered); or a failure: FTS_NS (no status),
  // FTS_DNR (a folder that could not be opened or read; no FTS_DP follows),
  // FTS_ERR (a folder the walk climbed back to that could not be opened
  // again; the rest of it is skipped).
  int kind = 0;
  int error = 0;             // errno of a failure
  const char* step = "";     // what failed
  int level = 0;             // 0 for the root
  int folderFd = -1;         // holds the item during the visit; -1 for FTS_ERR
  const char* name = "";     // the item within `folderFd`
  const char* path = "";     // the root's path, then "/" and the path below it
  std::size_t pathLength = 0;
  std::size_t rootLength = 0;  // of the root's part of `path`
  const struct stat* status = nullptr;  // the item's own, read with its folder
  // The caller's: kept from a skipped folder's first visit to its second.
  void* pointer = nullptr;
};

// A depth-first walk of a tree in the manner of fts, to any depth, with a
// bounded number of descriptors: each folder is read whole (names and
// status) before anything below it is visited, so no folder stays open for
// reading, and the folders on the way down are held by a VNFolderTrail.
// Items are named relative to their folder's descriptor; no symbolic link
// below the root is followed. A folder that is not the one listed when the
// walk opens it (swapped for a link or another folder) is reported as
// FTS_DNR and not entered.
class VNTreeWalk {
 public:
  enum Option : unsigned {
    FollowRoot = 1,  // the root may be a symbolic link to the tree
    Sorted = 2,      // a folder's entries in byte order of their names
  };

  // Walks the item `root` (relative to its dirfd), named `path` in entries.
  VNTreeWalk(VNAtPath root, std::string path, unsigned options = 0);
  VNTreeWalk(const VNTreeWalk&) = delete;
  VNTreeWalk& operator=(const VNTreeWalk&) = delete;

  // The next entry, or null when the walk is over.
  VNTreeEntry* read();
  // Keeps the walk out of the folder just read as FTS_D: it comes back at
  // once as FTS_DP.
  void skip() { skipping_ = state_ == State::AtFolder; }

 private:
  struct Item {
    std::string name;
    struct stat status;
    int kind;
    int error;
  };
  struct Level {
    std::vector<Item> items;
    std::size_t next = 0;
    std::size_t pathLength = 0;
    bool abandoned = false;  // no FTS_DP: it could not be opened again
  };
  enum class State { Start, AtFolder, Walking, Done };

  VNTreeEntry* start();
  VNTreeEntry* enter();
  VNTreeEntry* next();
  VNTreeEntry* leave();
  int list(int fd, const struct stat& own, Level& level);
  Item& itemOf(std::size_t level);
  VNTreeEntry* emit(const Item& item, int kind, std::size_t level, int folderFd);
  VNTreeEntry* fail(int error, const char* step, int kind);

  int rootFd_;
  std::string rootName_;
  unsigned options_;
  Item root_{};
  std::string path_;
  std::vector<Level> levels_;
  VNFolderTrail trail_;
  VNTreeEntry entry_;
  State state_ = State::Start;
  bool skipping_ = false;
};
