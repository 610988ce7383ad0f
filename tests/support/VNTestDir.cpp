#include "support/VNTestDir.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace {

// Clears the immutable and append-only inode flags below `root` so that a
// test that set them can still be cleaned up.
void clearInodeFlags(const std::filesystem::path& root) {
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(root, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_symlink(ec)) continue;
    int fd = ::open(it->path().c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) continue;
    int flags = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (flags & (FS_IMMUTABLE_FL | FS_APPEND_FL))) {
      flags &= ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
      ::ioctl(fd, FS_IOC_SETFLAGS, &flags);
    }
    ::close(fd);
  }
}

}  // namespace

VNTestDir::VNTestDir() {
  const char* base = std::getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/varnel-test.XXXXXX";
  if (!::mkdtemp(templ.data())) {
    std::perror("mkdtemp");
    std::abort();
  }
  path_ = templ;
}

VNTestDir::~VNTestDir() {
  clearInodeFlags(path_);
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

void VNMakeFolders(const std::string& path, unsigned mode) {
  std::error_code ec;
  std::filesystem::create_directories(path, ec);
  if (ec || ::chmod(path.c_str(), mode) != 0) {
    std::perror(path.c_str());
    std::abort();
  }
}

void VNWriteTestFile(const std::string& path, const std::string& contents, unsigned mode) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (fd < 0 && errno == ENOENT) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  }
  if (fd < 0 || ::write(fd, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size())) {
    std::perror(path.c_str());
    std::abort();
  }
  ::fchmod(fd, mode);
  ::close(fd);
}

std::string VNReadTestFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

bool VNExists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

struct stat VNStatOf(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) st = {};
  return st;
}

std::set<std::string> VNNamesIn(const std::string& folder) {
  std::set<std::string> names;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) names.insert(entry.path().filename());
  return names;
}
