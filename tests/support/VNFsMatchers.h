#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/VNFsStatus.h"

// Matchers over a path (std::string) that read the item without following a
// symbolic link, so a test checks the item itself and says what differs.

inline bool VNLstat(const std::string& path, struct stat* st, testing::MatchResultListener* listener) {
  if (::lstat(path.c_str(), st) == 0) return true;
  *listener << "cannot lstat: " << std::strerror(errno);
  return false;
}

// Permission bits (07777) equal `mode`.
MATCHER_P(HasMode, mode, "has permission bits " + testing::PrintToString(mode)) {
  struct stat st {};
  if (!VNLstat(arg, &st, result_listener)) return false;
  *result_listener << "mode is 0" << std::oct << (st.st_mode & 07777) << std::dec;
  return (st.st_mode & 07777) == static_cast<mode_t>(mode);
}

MATCHER_P2(HasOwner, uid, gid, "is owned by " + testing::PrintToString(uid) + ":" + testing::PrintToString(gid)) {
  struct stat st {};
  if (!VNLstat(arg, &st, result_listener)) return false;
  *result_listener << "owner is " << st.st_uid << ":" << st.st_gid;
  return st.st_uid == static_cast<uid_t>(uid) && st.st_gid == static_cast<gid_t>(gid);
}

// Access and modification times equal those of `other`'s status record,
// to the nanosecond.
MATCHER_P(HasTimes, other, "has the access and modification times given") {
  struct stat st {};
  if (!VNLstat(arg, &st, result_listener)) return false;
  const struct stat& want = other;
  auto same = [](const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; };
  *result_listener << "atime " << st.st_atim.tv_sec << "." << st.st_atim.tv_nsec << " mtime " << st.st_mtim.tv_sec << "."
                   << st.st_mtim.tv_nsec << ", wanted atime " << want.st_atim.tv_sec << "." << want.st_atim.tv_nsec
                   << " mtime " << want.st_mtim.tv_sec << "." << want.st_mtim.tv_nsec;
  return same(st.st_atim, want.st_atim) && same(st.st_mtim, want.st_mtim);
}

// The item itself carries extended attribute `name` with exactly `value`.
MATCHER_P2(HasXattr, name, value, std::string("has extended attribute ") + name) {
  char buffer[65536];
  ssize_t n = ::lgetxattr(arg.c_str(), std::string(name).c_str(), buffer, sizeof buffer);
  if (n < 0) {
    *result_listener << "cannot read it: " << std::strerror(errno);
    return false;
  }
  *result_listener << "value is \"" << std::string(buffer, static_cast<size_t>(n)) << "\"";
  return std::string(buffer, static_cast<size_t>(n)) == std::string(value);
}

MATCHER_P(LacksXattr, name, std::string("lacks extended attribute ") + name) {
  if (::lgetxattr(arg.c_str(), std::string(name).c_str(), nullptr, 0) < 0 && errno == ENODATA) return true;
  *result_listener << "it is there";
  return false;
}

// The Linux inode flags (FS_*_FL) of the regular file or directory hold all
// of `flags` and none of `absent`.
MATCHER_P2(HasInodeFlagsExcept, flags, absent, "has inode flags " + testing::PrintToString(flags)) {
  int fd = ::open(arg.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  unsigned got = 0;
  bool read = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &got) == 0;
  if (fd >= 0) ::close(fd);
  if (!read) {
    *result_listener << "cannot read inode flags: " << std::strerror(errno);
    return false;
  }
  *result_listener << "inode flags are 0x" << std::hex << got << std::dec;
  return (got & static_cast<unsigned>(flags)) == static_cast<unsigned>(flags) && (got & static_cast<unsigned>(absent)) == 0;
}
MATCHER_P(HasInodeFlags, flags, "has inode flags " + testing::PrintToString(flags)) {
  return testing::ExplainMatchResult(HasInodeFlagsExcept(flags, 0u), arg, result_listener);
}

MATCHER_P(IsHardLinkOf, other, std::string("is a hard link of ") + std::string(other)) {
  struct stat a {}, b {};
  if (!VNLstat(arg, &a, result_listener) || !VNLstat(std::string(other), &b, result_listener)) return false;
  *result_listener << "inodes " << a.st_dev << ":" << a.st_ino << " and " << b.st_dev << ":" << b.st_ino;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

MATCHER_P(IsSymlinkTo, target, std::string("is a symbolic link to ") + std::string(target)) {
  char buffer[4096];
  ssize_t n = ::readlink(std::string(arg).c_str(), buffer, sizeof buffer);
  if (n < 0) {
    *result_listener << "not a symbolic link: " << std::strerror(errno);
    return false;
  }
  *result_listener << "it points to \"" << std::string(buffer, static_cast<size_t>(n)) << "\"";
  return std::string(buffer, static_cast<size_t>(n)) == std::string(target);
}

// A VNFsStatus that failed with errno `code` on `path`.
MATCHER_P2(FailsWith, code, path, "fails with " + std::string(std::strerror(code)) + " on " + std::string(path)) {
  const VNFsStatus& status = arg;
  *result_listener << "status " << status.code << " (" << std::strerror(status.code) << ") at step \"" << status.step
                   << "\" on \"" << status.path << "\"";
  return status.code == code && status.path == std::string(path) && !status.step.empty();
}

MATCHER(Succeeds, "succeeds") {
  const VNFsStatus& status = arg;
  if (status.ok()) return true;
  *result_listener << "failed: " << status.error().localizedDescription();
  return false;
}
