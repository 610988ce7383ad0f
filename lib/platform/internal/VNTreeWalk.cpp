#include "platform/internal/VNTreeWalk.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

int kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return FTS_D;
  if (S_ISREG(mode)) return FTS_F;
  if (S_ISLNK(mode)) return FTS_SL;
  return FTS_DEFAULT;
}

}  // namespace

VNTreeWalk::VNTreeWalk(VNAtPath root, std::string path, unsigned options)
    : rootFd_(root.dirfd), rootName_(root.path), options_(options), path_(std::move(path)), trail_(O_RDONLY) {
  entry_.rootLength = path_.size();
}

VNTreeEntry* VNTreeWalk::read() {
  switch (state_) {
    case State::Start: return start();
    case State::AtFolder: return enter();
    case State::Walking: return next();
    case State::Done: break;
  }
  return nullptr;
}

VNTreeEntry* VNTreeWalk::start() {
  root_.name = rootName_;
  const int follow = options_ & FollowRoot ? 0 : AT_SYMLINK_NOFOLLOW;
  const bool found = ::fstatat(rootFd_, rootName_.c_str(), &root_.status, follow) == 0;
  root_.kind = found ? kindOf(root_.status.st_mode) : FTS_NS;
  root_.error = found ? 0 : errno;
  state_ = root_.kind == FTS_D ? State::AtFolder : State::Done;
  return emit(root_, root_.kind, 0, rootFd_);
}

// Opens and reads the folder just visited as FTS_D, unless it was skipped.
VNTreeEntry* VNTreeWalk::enter() {
  state_ = State::Walking;
  if (std::exchange(skipping_, false)) {
    entry_.kind = FTS_DP;
    return &entry_;
  }
  const bool isRoot = levels_.empty();
  const Item& folder = itemOf(levels_.size());
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isRoot && (options_ & FollowRoot) ? 0 : O_NOFOLLOW);
  VNUniqueFd fd(::openat(isRoot ? rootFd_ : trail_.fd(), folder.name.c_str(), flags));
  struct stat st {};
  int error = !fd || ::fstat(fd.get(), &st) != 0 ? errno : 0;
  if (!error && (st.st_dev != folder.status.st_dev || st.st_ino != folder.status.st_ino)) error = ESTALE;
  if (error) return fail(error, "open folder", FTS_DNR);
  Level level;
  level.pathLength = path_.size();
  if (int readError = list(fd.get(), st, level)) return fail(readError, "read folder", FTS_DNR);
  trail_.push(std::move(fd), st.st_dev, st.st_ino);
  levels_.push_back(std::move(level));
  return next();
}

// Reads the names of the folder `fd` (of status `own`) into `level`, then
// their status.
int VNTreeWalk::list(int fd, const struct stat& own, Level& level) {
  if (int error = VNForEachName(fd, [&](const char* name, unsigned char) { level.items.push_back({name, {}, 0, 0}); }))
    return error;
  if (options_ & Sorted)
    std::sort(level.items.begin(), level.items.end(), [](const Item& a, const Item& b) { return a.name < b.name; });
  for (Item& item : level.items) {
    if (::fstatat(fd, item.name.c_str(), &item.status, AT_SYMLINK_NOFOLLOW) != 0) {
      item.kind = FTS_NS;
      item.error = errno;
      continue;
    }
    item.kind = kindOf(item.status.st_mode);
    const dev_t device = item.status.st_dev;
    const ino_t inode = item.status.st_ino;
    if (item.kind == FTS_D && ((device == own.st_dev && inode == own.st_ino) || trail_.contains(device, inode)))
      item.kind = FTS_DC;
  }
  return 0;
}

VNTreeEntry* VNTreeWalk::next() {
  while (!levels_.empty()) {
    Level& level = levels_.back();
    if (level.next == level.items.size()) {
      if (VNTreeEntry* entry = leave()) return entry;
      continue;
    }
    const Item& item = level.items[level.next++];
    path_.resize(level.pathLength);
    if (path_.empty() || path_.back() != '/') path_.push_back('/');
    path_.append(item.name);
    if (item.kind == FTS_D) state_ = State::AtFolder;
    return emit(item, item.kind, levels_.size(), trail_.fd());
  }
  state_ = State::Done;
  return nullptr;
}

// Climbs out of the deepest folder: its FTS_DP, or FTS_ERR for the folder
// above it when that could not be opened again; null when there is nothing
// to report.
VNTreeEntry* VNTreeWalk::leave() {
  const bool abandoned = levels_.back().abandoned;
  path_.resize(levels_.back().pathLength);
  levels_.pop_back();
  const std::size_t depth = levels_.size();
  if (int error = trail_.pop()) {
    Level& parent = levels_.back();
    parent.next = parent.items.size();
    parent.abandoned = true;
    path_.resize(parent.pathLength);
    emit(itemOf(depth - 1), FTS_ERR, depth - 1, -1);
    return fail(error, "reopen folder", FTS_ERR);
  }
  if (abandoned) return nullptr;
  return emit(itemOf(depth), FTS_DP, depth, levels_.empty() ? rootFd_ : trail_.fd());
}

// The folder at `level` of the walk's way down.
VNTreeWalk::Item& VNTreeWalk::itemOf(std::size_t level) {
  if (level == 0) return root_;
  Level& holder = levels_[level - 1];
  return holder.items[holder.next - 1];
}

VNTreeEntry* VNTreeWalk::emit(const Item& item, int kind, std::size_t level, int folderFd) {
  entry_.kind = kind;
  entry_.error = item.error;
  entry_.step = kind == FTS_NS ? "stat" : "";
  entry_.level = static_cast<int>(level);
  entry_.folderFd = folderFd;
  entry_.name = item.name.c_str();
  entry_.path = path_.c_str();
  entry_.pathLength = path_.size();
  entry_.status = &item.status;
  entry_.pointer = nullptr;
  return &entry_;
}

VNTreeEntry* VNTreeWalk::fail(int error, const char* step, int kind) {
  entry_.kind = kind;
  entry_.error = error;
  entry_.step = step;
  return &entry_;
}
