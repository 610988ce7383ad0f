// The storage walk: folders are opened relative to their parent's descriptor
// (never following a link) and read a whole folder at a time. Its entries are
// read with VNStorageProbe and visited in order, then its subfolders are
// entered one by one. On file systems that clone, most files need a second
// request (their extents), so large folders are read by two threads.
//
// Trees may be far deeper than the descriptor limit: the folders on the way
// down are held by a VNFolderTrail, and a folder that cannot be opened again
// as the one it was when the walk climbs back to it has the rest of it
// skipped.
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
#include "platform/internal/VNFolderTrail.h"
#include "platform/internal/VNStorageProbeLinux.h"

namespace {

constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Folders with fewer entries are not worth waking the second thread for.
constexpr size_t kParallelEntries = 32;
// Entries a thread takes at a time.
constexpr size_t kChunk = 16;

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

// One folder on the way down: its subfolders still to enter, in order.
struct Level {
  struct Subfolder {
    std::string name;
    std::uint64_t device;
    std::uint64_t inode;
  };
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
      VNUniqueFd child(::openat(trail_.fd(), subfolder.name.c_str(), kOpenFolderFlags));
      if (!child) {
        if (!onError_(VNError::posix(errno, path_, "open folder"))) return;
        continue;
      }
      if (!enter(std::move(child), subfolder.device, subfolder.inode)) return;
    }
  }

 private:
  // Holds the folder at path_ and visits its entries; false to stop the walk.
  bool enter(VNUniqueFd fd, std::uint64_t device, std::uint64_t inode) {
    VNCloneDomain domain = cloneDomain(fd.get(), device);
    trail_.push(std::move(fd), device, inode);
    levels_.push_back(Level{{}, 0, path_.size(), domain});
    return visitFolder(levels_.back());
  }

  // Leaves the deepest folder; false to stop the walk.
  bool leave() {
    levels_.pop_back();
    const int failure = trail_.pop();
    if (!failure) return true;
    // The folder moved while the walk was below it: the rest of it is skipped.
    Level& parent = levels_.back();
    path_.resize(parent.pathLength);
    parent.next = parent.subfolders.size();
    return onError_(VNError::posix(failure, path_, "reopen folder"));
  }

  bool visitFolder(Level& level) {
    if (!list()) return false;
    batch_.dirFd = trail_.fd();
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

  // Reads the deepest folder's names into the batch; false to stop the walk.
  bool list() {
    batch_.names.clear();
    batch_.entries.clear();
    const int failure = VNForEachName(trail_.fd(), [&](const char* name, unsigned char type) {
      batch_.entries.push_back({batch_.names.size(), type == DT_REG, {}});
      batch_.names.append(name).push_back('\0');
    });
    return failure == 0 || onError_(VNError::posix(failure, path_, "read folder"));
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
  VNFolderTrail trail_{O_RDONLY};
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
