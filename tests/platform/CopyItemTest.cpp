#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include "PlatformTestSupport.h"
#include "platform/VNCopyItem.h"
#include "platform/VNFileFlags.h"
#include "platform/VNFileSystemCalls.h"
#include "support/VNFaultyFileSystemCalls.h"
#include "support/VNTest.h"

using Call = VNFaultyFileSystemCalls::Call;

namespace {

constexpr std::uint64_t kImageBytes = 300u << 20;

void SetTimes(const std::string& path, time_t atime, time_t mtime) {
  const struct timespec times[2] = {{atime, 111}, {mtime, 222333}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void SetFacl(const std::string& entry, const std::string& path) {
  std::string output;
  ASSERT_EQ(VNRunCommand("setfacl -m '" + entry + "' '" + path + "'", &output), 0) << output;
}

VNFsStatus Copy(VNAtPath source, VNAtPath destination, VNCopyOptions options = VNCopyOptionSet::Full,
                const struct stat* seen = nullptr) {
  return VNCopyItem::makeDefault()->copyItem(source, destination, options, seen);
}

// Every piece of metadata reaches the copy of a regular file: contents,
// owner, set-id mode (which a change of owner would clear if it came after
// the mode), extended attributes, ACL, times, and flags that lock the file,
// applied last. XFS gives a new file the no-dump flag of its folder: the
// copy ends with the source's word all the same.
TEST(CopyItem, RegularFileCarriesEveryPieceOfMetadataInOrder) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string source = *image / "source", copy = *image / "nodump/copy";
  WritePatternFile(source, 3 << 20);
  ASSERT_EQ(::chown(source.c_str(), 1234, 5678), 0);
  ASSERT_EQ(::lsetxattr(source.c_str(), "user.note", "hello", 5, 0), 0);
  ASSERT_EQ(::lsetxattr(source.c_str(), "trusted.other", "t", 1, 0), 0);
  SetFacl("u:4321:r", source);
  ASSERT_EQ(::chmod(source.c_str(), 06750), 0);
  SetTimes(source, 1000000000, 1200000000);
  const std::uint32_t word = VNFileFlag::UserImmutable | VNFileFlag::WARDMask;
  ASSERT_THAT(flags->setFlags(source, word), Succeeds());
  VNMakeFolders(*image / "nodump");
  ASSERT_THAT(flags->setFlags(*image / "nodump", VNFileFlag::NoDump), Succeeds());
  struct stat before = VNStatOf(source);
  ASSERT_THAT(Copy(source, copy), Succeeds());
  EXPECT_THAT(copy, HasTimes(before));  // before reading it moves its atime
  EXPECT_EQ(VNReadTestFile(copy), VNReadTestFile(source));
  EXPECT_THAT(copy, HasOwner(1234, 5678));
  EXPECT_THAT(copy, HasMode(06750));
  EXPECT_THAT(copy, HasXattr("user.note", "hello"));
  EXPECT_THAT(copy, HasXattr("trusted.other", "t"));
  char acl[256];
  ssize_t size = ::lgetxattr(source.c_str(), "system.posix_acl_access", acl, sizeof acl);
  ASSERT_GT(size, 0);
  EXPECT_THAT(copy, HasXattr("system.posix_acl_access", std::string(acl, static_cast<size_t>(size))));
  std::uint32_t copied = 0;
  ASSERT_THAT(flags->getFlags(copy, &copied), Succeeds());
  EXPECT_EQ(copied, word);
  EXPECT_THAT(copy, HasInodeFlags(FS_IMMUTABLE_FL));
  flags->setFlags(source, 0);
  flags->setFlags(copy, 0);
}

// A default ACL on the destination's folder gives new files an ACL of their
// own; the copy of a file without one must not keep it.
TEST(CopyItem, DropsAnAclInheritedFromTheDestinationFolder) {
  VNTestDir dir;
  VNWriteTestFile(dir / "plain", "x", 0640);
  VNMakeFolders(dir / "inherits");
  SetFacl("d:u:4321:rwx", dir / "inherits");
  ASSERT_THAT(Copy(dir / "plain", dir / "inherits/plain"), Succeeds());
  EXPECT_THAT(dir / "inherits/plain", LacksXattr("system.posix_acl_access"));
  EXPECT_THAT(dir / "inherits/plain", HasMode(0640));
}

// Holes stay holes whichever way the data moves: a clone within XFS,
// copy_file_range from btrfs, or read/write when both are refused.
TEST(CopyItem, KeepsHoles) {
  VN_MOUNT_OR_SKIP(xfs, VNLoopImage::Kind::XFS, kImageBytes);
  VN_MOUNT_OR_SKIP(btrfs, VNLoopImage::Kind::Btrfs, kImageBytes);
  int copies = 0;
  for (const std::string& source : {*xfs / "sparse", *btrfs / "sparse"}) {
    int fd = ::open(source.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    std::string block(1 << 20, 'a');
    ASSERT_EQ(::pwrite(fd, block.data(), block.size(), 0), static_cast<ssize_t>(block.size()));
    ASSERT_EQ(::pwrite(fd, block.data(), block.size(), 16 << 20), static_cast<ssize_t>(block.size()));
    ASSERT_EQ(::ftruncate(fd, 40 << 20), 0);  // a trailing hole too
    ::close(fd);
    for (bool readWrite : {false, true}) {
      std::string copy = *xfs / ("copy" + std::to_string(++copies));
      auto faults = std::make_shared<VNFaultyFileSystemCalls>();
      if (readWrite) {
        faults->failNth(Call::Clone, 1, EXDEV, /*sticky=*/true);
        faults->failNth(Call::CopyRange, 1, EXDEV, /*sticky=*/true);
      }
      VNPlatformOverride<VNFileSystemCalls> seam(faults);
      ASSERT_THAT(Copy(source, copy), Succeeds());
      struct stat st = VNStatOf(copy);
      EXPECT_EQ(st.st_size, 40 << 20);
      EXPECT_LT(st.st_blocks * 512, 8 << 20) << source << " to " << copy << " lost its holes";
      EXPECT_EQ(VNReadTestFile(copy), VNReadTestFile(source));
      EXPECT_TRUE(!readWrite || faults->calls(Call::Write) > 0);
    }
  }
}

// A refused method is tried once per pair of file systems, then the next
// one is used directly: the second file never tries to clone.
TEST(CopyItem, RemembersARefusedCloneForThePairOfFileSystems) {
  VNTestDir dir;
  auto faults = std::make_shared<VNFaultyFileSystemCalls>();
  faults->failNth(Call::Clone, 1, EOPNOTSUPP);
  VNPlatformOverride<VNFileSystemCalls> seam(faults);
  auto copier = VNCopyItem::makeDefault();
  for (const char* name : {"a", "b", "c"}) {
    VNWriteTestFile(dir / name, std::string(10000, *name));
    ASSERT_THAT(copier->copyItem(dir / name, dir / (std::string(name) + ".copy"), VNCopyOptionSet::Full), Succeeds());
    EXPECT_EQ(VNReadTestFile(dir / (std::string(name) + ".copy")), std::string(10000, *name));
  }
  EXPECT_EQ(faults->calls(Call::Clone), 1);
}

// Failures while writing: the errno comes back with the step and the path
// that failed (the destination for a write, the source for a read), and
// the half-written file is gone. A failure that is not a refusal never
// falls back to another method.
TEST(CopyItem, FailedDataLeavesNoHalfWrittenFile) {
  VNTestDir dir;
  std::string source = dir / "big", copy = dir / "copy";
  WritePatternFile(source, 5 << 20);
  ASSERT_EQ(::lsetxattr(source.c_str(), "user.a", "1", 1, 0), 0);
  const std::tuple<Call, int, bool> cases[] = {{Call::Clone, EIO, false},   {Call::Clone, ENOSPC, false},
                                               {Call::CopyRange, EIO, false}, {Call::Write, ENOSPC, false},
                                               {Call::Read, EIO, true},       {Call::SetXattr, EIO, false}};
  for (const auto& [call, code, onSource] : cases) {
    auto faults = std::make_shared<VNFaultyFileSystemCalls>();
    faults->failNth(Call::Clone, 1, EOPNOTSUPP);
    faults->failNth(Call::CopyRange, 1, EXDEV);
    faults->failNth(call, call == Call::Write || call == Call::Read ? 3 : 1, code);
    VNPlatformOverride<VNFileSystemCalls> seam(faults);
    EXPECT_THAT(Copy(source, copy), FailsWith(code, onSource ? source : copy)) << static_cast<int>(call);
    EXPECT_FALSE(VNExists(copy)) << "half-written file left after " << static_cast<int>(call);
  }
}

// A real full file system: ENOSPC names the destination, which is removed.
TEST(CopyItem, FullFileSystemGivesENOSPCAndRemovesTheFile) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  VNTestDir dir;
  WritePatternFile(dir / "eight-mib", 8 << 20);
  std::string output;
  ASSERT_EQ(VNRunCommand("fallocate -l " + std::to_string(FreeBytes(image->mountPoint()) - (2 << 20)) + " " + *image / "filler",
                         &output), 0) << output;
  EXPECT_THAT(Copy(dir / "eight-mib", *image / "copy"), FailsWith(ENOSPC, *image / "copy"));
  EXPECT_FALSE(VNExists(*image / "copy"));
}

// An unreadable source fails with its own errno and path; as root that
// needs a child without root's powers.
TEST(CopyItem, UnreadableSourceGivesItsErrno) {
  VNTestDir dir;
  ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
  std::string source = dir / "secret", copy = dir / "copy";
  VNWriteTestFile(source, "s", 0000);
  EXPECT_EXIT(
      {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(2);
        VNFsStatus status = Copy(source, copy);
        ::_exit(status.code == EACCES && status.path == source && !VNExists(copy) ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// The destination is never followed: a symbolic link there makes the copy
// fail (file and directory alike) unless unlink-first removes the link
// itself. Unlink-first replaces whatever kind of item is there (a FIFO, an
// empty folder); without it an existing regular file is overwritten and any
// other kind refused.
TEST(CopyItem, DestinationsAreReplacedOrRefusedNeverFollowed) {
  VNTestDir dir;
  std::string sentinel = dir / "sentinel", source = dir / "source", trap = dir / "trap", fifo = dir / "fifo",
              empty = dir / "empty", full = dir / "full", file = dir / "file";
  VNWriteTestFile(sentinel, "keep me", 0644);
  VNWriteTestFile(source, "fresh");
  ASSERT_EQ(::symlink(sentinel.c_str(), trap.c_str()), 0);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  VNMakeFolders(empty, 0700);
  VNWriteTestFile(full + "/inside", "i");
  VNWriteTestFile(file, "an older and longer text");
  const VNCopyOptions dataOnly = VNCopyOption::Data | VNCopyOption::NoFollow;
  EXPECT_THAT(Copy(source, trap, dataOnly), FailsWith(ELOOP, trap));
  EXPECT_THAT(Copy(source, trap, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(Copy(dir.path(), trap, VNCopyOptionSet::Directory), FailsWith(ENOTDIR, trap));
  EXPECT_THAT(trap, IsSymlinkTo(sentinel));
  EXPECT_THAT(sentinel, HasMode(0644));
  EXPECT_THAT(Copy(source, fifo, dataOnly), FailsWith(EEXIST, fifo));
  EXPECT_THAT(Copy(source, file, dataOnly), Succeeds());
  for (const std::string& target : {trap, fifo, empty, file}) {
    ASSERT_THAT(Copy(source, target), Succeeds()) << target;
    EXPECT_EQ(VNReadTestFile(target), "fresh");
  }
  EXPECT_EQ(VNReadTestFile(sentinel), "keep me");
  EXPECT_THAT(Copy(source, full), FailsWith(ENOTEMPTY, full));
  EXPECT_EQ(VNReadTestFile(full + "/inside"), "i");
}

// Special items are laid down as the same kind with their metadata; a
// symbolic link is copied as itself with its own owner and times. The
// caller's stale view of a source that has become a FIFO is not trusted.
TEST(CopyItem, SpecialItemsAndSymbolicLinksKeepTheirKind) {
  VNTestDir dir;
  std::string fifo = dir / "fifo", link = dir / "link", socketPath = dir / "socket";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0610), 0);
  ASSERT_EQ(::symlink("../somewhere/else", link.c_str()), 0);
  int s = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socketPath.c_str());
  ASSERT_EQ(::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(s);
  ASSERT_EQ(::lchown(link.c_str(), 42, 43), 0);
  SetTimes(link, 1100000000, 1300000000);
  SetTimes(fifo, 1100000000, 1300000000);
  VNWriteTestFile(dir / "file", "contents", 0640);
  struct stat fifoBefore = VNStatOf(fifo), linkBefore = VNStatOf(link), seen = VNStatOf(dir / "file");

  ASSERT_THAT(Copy(fifo, dir / "fifo.copy", VNCopyOptionSet::Full, &seen), Succeeds());
  EXPECT_TRUE(S_ISFIFO(VNStatOf(dir / "fifo.copy").st_mode));
  EXPECT_THAT(dir / "fifo.copy", HasMode(0610));
  EXPECT_THAT(dir / "fifo.copy", HasTimes(fifoBefore));
  ASSERT_THAT(Copy(dir / "file", dir / "file.copy", VNCopyOptionSet::Full, &seen), Succeeds());
  EXPECT_EQ(VNReadTestFile(dir / "file.copy"), "contents");
  ASSERT_THAT(Copy(socketPath, dir / "socket.copy"), Succeeds());
  EXPECT_TRUE(S_ISSOCK(VNStatOf(dir / "socket.copy").st_mode));
  ASSERT_THAT(Copy(link, dir / "link.copy"), Succeeds());
  EXPECT_THAT(dir / "link.copy", HasTimes(linkBefore));  // before reading it moves its atime
  EXPECT_THAT(dir / "link.copy", IsSymlinkTo("../somewhere/else"));
  EXPECT_THAT(dir / "link.copy", HasOwner(42, 43));
  if (::geteuid() == 0) {
    ASSERT_EQ(::mknod((dir / "null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    ASSERT_THAT(Copy(dir / "null", dir / "null.copy"), Succeeds());
    EXPECT_EQ(VNStatOf(dir / "null.copy").st_rdev, makedev(1, 3));
    EXPECT_TRUE(S_ISCHR(VNStatOf(dir / "null.copy").st_mode));
  }
  EXPECT_THAT(Copy(dir / "missing", dir / "x"), FailsWith(ENOENT, dir / "missing"));
}

// A folder's first copy leaves its stat fields out (an existing folder is
// reused); they land on a later call, after its contents.
TEST(CopyItem, DirectoryStatFieldsLandAfterItsContents) {
  VNTestDir dir;
  std::string source = dir / "tree", copy = dir / "tree.copy";
  VNWriteTestFile(source + "/a", "a");
  VNMakeFolders(source, 0750);
  SetTimes(source, 1000000000, 1100000000);
  ASSERT_THAT(Copy(source, copy, VNCopyOptionSet::Directory), Succeeds());
  EXPECT_THAT(copy, HasMode(0700));
  ASSERT_THAT(Copy(source, copy, VNCopyOptionSet::Directory), Succeeds());
  ASSERT_THAT(Copy(source + "/a", copy + "/a"), Succeeds());
  ASSERT_THAT(Copy(source, copy, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(copy, HasMode(0750));
  EXPECT_THAT(copy, HasTimes(VNStatOf(source)));
}

// Stat fields onto a symbolic link (the item the link stands for) reach the
// link, never its target; onto a locked item that is already there they
// still land, and the flags end as the source's, or as they were when the
// copy does not carry flags.
TEST(CopyItem, StatFieldsLandOnLinksAndLockedDestinations) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string source = *image / "folder", target = *image / "target", link = *image / "link", locked = *image / "locked";
  VNMakeFolders(source, 0751);
  ASSERT_EQ(::chown(source.c_str(), 501, 20), 0);
  SetTimes(source, 1000000000, 1100000000);
  ASSERT_THAT(flags->setFlags(source, VNFileFlag::Restricted), Succeeds());
  VNWriteTestFile(target, "t");
  ASSERT_EQ(::symlink("target", link.c_str()), 0);
  VNMakeFolders(locked, 0700);
  const std::uint32_t lockedWord = VNFileFlag::UserImmutable | VNFileFlag::UserAppendOnly;
  ASSERT_THAT(flags->setFlags(locked, lockedWord), Succeeds());
  struct stat targetBefore = VNStatOf(target);

  ASSERT_THAT(Copy(source, link, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(link, HasOwner(501, 20));
  EXPECT_THAT(link, HasTimes(VNStatOf(source)));
  EXPECT_THAT(link, HasXattr(VNFileFlagsAttributeName, "0x00080000"));
  EXPECT_THAT(target, HasOwner(targetBefore.st_uid, targetBefore.st_gid));
  EXPECT_THAT(target, HasTimes(targetBefore));
  EXPECT_THAT(target, LacksXattr(VNFileFlagsAttributeName));
  EXPECT_THAT(target, HasMode(targetBefore.st_mode & 07777));

  std::uint32_t word = 0;
  ASSERT_EQ(::lsetxattr(source.c_str(), "user.tag", "v", 1, 0), 0);
  ASSERT_THAT(Copy(source, locked, VNCopyOptionSet::Directory), Succeeds());
  EXPECT_THAT(locked, HasXattr("user.tag", "v"));
  ASSERT_THAT(flags->getFlags(locked, &word), Succeeds());
  EXPECT_EQ(word, lockedWord) << "flags put back";
  ASSERT_THAT(Copy(source, locked, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(locked, HasMode(0751));
  EXPECT_THAT(locked, HasTimes(VNStatOf(source)));
  ASSERT_THAT(flags->getFlags(locked, &word), Succeeds());
  EXPECT_EQ(word, VNFileFlag::Restricted);
}

// Items named relative to directory descriptors stay with those folders
// even when the folders are renamed meanwhile, so a walk holding
// descriptors cannot be redirected through a swapped path.
TEST(CopyItem, NamesRelativeToDirectoryDescriptorsFollowTheFolders) {
  VNTestDir dir;
  VNMakeFolders(dir / "to");
  VNWriteTestFile(dir / "from/file", "relative", 0604);
  int from = ::open((dir / "from").c_str(), O_DIRECTORY | O_RDONLY | O_CLOEXEC);
  int to = ::open((dir / "to").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::rename((dir / "to").c_str(), (dir / "moved").c_str()), 0);
  VNMakeFolders(dir / "to");
  EXPECT_THAT(Copy(VNAtPath(from, "file"), VNAtPath(to, "file")), Succeeds());
  EXPECT_EQ(VNReadTestFile(dir / "moved/file"), "relative");
  EXPECT_THAT(dir / "moved/file", HasMode(0604));
  EXPECT_FALSE(VNExists(dir / "to/file"));
  EXPECT_THAT(Copy(VNAtPath(from, "gone"), VNAtPath(to, "x")), FailsWith(ENOENT, "gone"));
  ::close(from);
  ::close(to);
}

}  // namespace
