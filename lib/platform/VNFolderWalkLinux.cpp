// The storage walk: folders are opened relative to their parent's descriptor
// (never following a link) and read a whole folder at a time. Its entries are
// read with VNStorageProbe and visited in order, then its subfolders are
// entered one by one. On file systems that clone, most files need a second
// request (their extents), so large folders are read by two threads.
//
// Trees may be far deeper than the descriptor limit. Only the deepest
// kOpenLevels folders on the way down stay open; a closed folder is opened
// again through ".." of its child when the walk climbs back to it, and its
// device and inode must be the ones it had, or the rest of it is skipped.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/VNUniqueFd.h"
#include "platform/internal/VNStorageProbeLinux.h"

namespace {

constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Folders with fewer entries are not worth waking the second thread for.
constexpr size_t kParallelEntries = 32;
// Entries a thread takes at a time.
constexpr size_t kChunk = 16;
// Folders on the way down kept open at once.
constexpr size_t kOpenLevels = 32;

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// The entries of the folder being read. Kept by the walk and reused for every
// folder, so reading a folder allocates nothing once the buffers have grown.
struct Batch {
  struct Entry {
    size_t nameOffset;
    bool regular;  // the folder listed it as a regular file
    VNStorageValues values;
  };

  int dirFd = -1;
  VNCloneDomain domain;
  std::string names;  // NUL-terminated names, one after the other
  std::vector<Entry> entries;
  std::atomic<size_t> cursor{0};

  const char* name(const Entry& entry) const { return names.data() + entry.nameOffset; }

  // Reads entries a chunk at a time until none is left; both threads run it
  // on the same batch, each entry being read by exactly one of them.
  void readValues() {
    for (;;) {
      size_t begin = cursor.fetch_add(kChunk, std::memory_order_relaxed);
      if (begin >= entries.size()) return;
      size_t end = std::min(begin + kChunk, entries.size());
      for (size_t i = begin; i < end; ++i)
        entries[i].values = VNStorageProbe::read(dirFd, name(entries[i]), domain, entries[i].regular);
    }
  }
};

// The second thread of a walk, started at the first large folder on a file
// system that clones and ended with the walk.
class Helper {
 public:
  Helper() = default;
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;
  ~Helper() {
    if (!thread_.joinable()) return;
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    posted_.notify_one();
    thread_.join();
  }

  // Reads `batch` with both threads; returns when all its entries are read.
  void read(Batch& batch) {
    if (!start()) {
      batch.readValues();
      return;
    }
    {
      std::lock_guard lock(mutex_);
      batch_ = &batch;
      ++generation_;
    }
    posted_.notify_one();
    batch.readValues();
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [&] { return done_ == generation_; });
    batch_ = nullptr;
  }

 private:
  // Without a second thread (the system refused one) the walk reads alone.
  bool start() {
    if (thread_.joinable()) return true;
    try {
      thread_ = std::thread([this] { loop(); });
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

  void loop() {
    std::unique_lock lock(mutex_);
    for (;;) {
      posted_.wait(lock, [&] { return stop_ || done_ != generation_; });
      if (stop_) return;
      Batch* batch = batch_;
      lock.unlock();
      batch->readValues();
      lock.lock();
      done_ = generation_;
      finished_.notify_one();
    }
  }

  std::mutex mutex_;
  std::condition_variable posted_;
  std::condition_variable finished_;
  Batch* batch_ = nullptr;
  std::uint64_t generation_ = 0;
  std::uint64_t done_ = 0;
  bool stop_ = false;
  std::thread thread_;
};

// One folder on the way down: its subfolders still to enter, in order. Its
// handle is null while it is closed to save descriptors.
struct Level {
  struct Subfolder {
    std::string name;
    std::uint64_t device;
    std::uint64_t inode;
  };
  UniqueDir dir;
  std::uint64_t device;
  std::uint64_t inode;
  std::vector<Subfolder> subfolders;
  size_t next = 0;
  size_t pathLength;  // of the walk's path while inside this folder
  VNCloneDomain domain;
};

class Walk {
 public:
  Walk(const VNStorageUsage::Visitor& visit, const VNStorageUsage::ErrorHandler& onError)
      : visit_(visit), onError_(onError) {}

  void run(const std::string& root) {
    path_ = root;
    VNUniqueFd fd(::open(root.c_str(), kOpenFolderFlags));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
      onError_(VNError::posix(errno, root, "open folder"));
      return;
    }
    if (!enter(std::move(fd), st.st_dev, st.st_ino)) return;
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.next == level.subfolders.size()) {
        if (!leave()) return;
        continue;
      }
      const Level::Subfolder& subfolder = level.subfolders[level.next++];
      path_.resize(level.pathLength);
      path_.append("/").append(subfolder.name);
      VNUniqueFd child(::openat(::dirfd(level.dir.get()), subfolder.name.c_str(), kOpenFolderFlags));
      if (!child) {
        if (!onError_(VNError::posix(errno, path_, "open folder"))) return;
        continue;
      }
      if (!enter(std::move(child), subfolder.device, subfolder.inode)) return;
    }
  }

 private:
  // Opens the folder at path_, visits its entries; false to stop the walk.
  bool enter(VNUniqueFd fd, std::uint64_t device, std::uint64_t inode) {
    VNCloneDomain domain = cloneDomain(fd.get(), device);
    UniqueDir dir(::fdopendir(fd.get()));
    if (!dir) return onError_(VNError::posix(errno, path_, "open folder"));
    fd.release();
    levels_.push_back(Level{std::move(dir), device, inode, {}, 0, path_.size(), domain});
    if (levels_.size() - firstOpen_ > kOpenLevels) levels_[firstOpen_++].dir.reset();
    return visitFolder(levels_.back());
  }

  // Leaves the deepest folder, opening its parent again through ".." when it
  // was closed; false to stop the walk.
  bool leave() {
    Level child = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty() || levels_.size() > firstOpen_) return true;
    firstOpen_ = levels_.size() - 1;
    Level& parent = levels_.back();
    path_.resize(parent.pathLength);
    int childFd = child.dir ? ::dirfd(child.dir.get()) : -1;
    VNUniqueFd fd(childFd < 0 ? -1 : ::openat(childFd, "..", kOpenFolderFlags));
    struct stat st {};
    int failure = !fd ? (childFd < 0 ? ESTALE : errno) : ::fstat(fd.get(), &st) != 0 ? errno : 0;
    if (!failure && (st.st_dev != parent.device || st.st_ino != parent.inode)) failure = ESTALE;
    if (!failure) {
      parent.dir.reset(::fdopendir(fd.get()));
      failure = parent.dir ? 0 : errno;
      if (parent.dir) fd.release();
    }
    if (!failure) return true;
    // The folder moved while the walk was below it: the rest of it is skipped.
    parent.next = parent.subfolders.size();
    return onError_(VNError::posix(failure, path_, "reopen folder"));
  }

  bool visitFolder(Level& level) {
    if (!list(level)) return false;
    batch_.dirFd = ::dirfd(level.dir.get());
    batch_.domain = level.domain;
    batch_.cursor = 0;
    if (level.domain && batch_.entries.size() >= kParallelEntries)
      helper_.read(batch_);
    else
      batch_.readValues();
    for (const Batch::Entry& entry : batch_.entries) {
      if (!visit_(entry.values)) return false;
      if (entry.values.type == VNStorageValues::Type::Directory)
        level.subfolders.push_back({batch_.name(entry), entry.values.device, entry.values.inode});
    }
    return true;
  }

  // Reads the folder's names into the batch; false to stop the walk.
  bool list(Level& level) {
    batch_.names.clear();
    batch_.entries.clear();
    for (;;) {
      errno = 0;
      const dirent* entry = ::readdir(level.dir.get());
      if (!entry) break;
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
      batch_.entries.push_back({batch_.names.size(), entry->d_type == DT_REG, {}});
      batch_.names.append(name).push_back('\0');
    }
    return errno == 0 || onError_(VNError::posix(errno, path_, "read folder"));
  }

  // Asks the file system once per device met.
  VNCloneDomain cloneDomain(int fd, std::uint64_t device) {
    for (const auto& [known, domain] : devices_)
      if (known == device) return domain;
    devices_.emplace_back(device, VNStorageProbe::cloneDomain(fd));
    return devices_.back().second;
  }

  const VNStorageUsage::Visitor& visit_;
  const VNStorageUsage::ErrorHandler& onError_;
  std::vector<Level> levels_;
  size_t firstOpen_ = 0;  // levels below it are closed
  std::vector<std::pair<std::uint64_t, VNCloneDomain>> devices_;
  Batch batch_;
  Helper helper_;
  std::string path_;  // of the folder being entered or read, for error messages
};

}  // namespace

namespace VNStorageProbe {

void walk(const std::string& root, const VNStorageUsage::Visitor& visit,
          const VNStorageUsage::ErrorHandler& onError) {
  Walk(visit, onError).run(root);
}

}  // namespace VNStorageProbe
