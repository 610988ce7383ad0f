#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include "PlatformTestSupport.h"
#include "platform/VNCopyItem.h"
#include "platform/VNFileFlags.h"
#include "platform/VNFileSystemCalls.h"
#include "platform/VNPlatformService.h"
#include "support/VNFaultyFileSystemCalls.h"
#include "support/VNFsMatchers.h"
#include "support/VNLoopImage.h"

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

// Every piece of metadata reaches the copy of a regular file: contents,
// owner, set-id mode (which a change of owner would clear if it came after
// the mode), extended attributes, ACL, times, and flags that lock the file,
// applied last.
TEST(CopyItem, RegularFileCarriesEveryPieceOfMetadataInOrder) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  std::string source = *image / "source", copy = *image / "copy";
  WritePatternFile(source, 3 << 20);
  ASSERT_EQ(::chown(source.c_str(), 1234, 5678), 0);
  ASSERT_EQ(::chmod(source.c_str(), 06750), 0);
  ASSERT_EQ(::lsetxattr(source.c_str(), "user.note", "hello", 5, 0), 0);
  ASSERT_EQ(::lsetxattr(source.c_str(), "trusted.other", "t", 1, 0), 0);
  SetFacl("u:4321:r", source);
  ASSERT_EQ(::chmod(source.c_str(), 06750), 0);
  SetTimes(source, 1000000000, 1200000000);
  const std::uint32_t flags = VNFileFlag::UserImmutable | VNFileFlag::WARDMask;
  ASSERT_THAT(VNFileFlags::makeDefault()->setFlags(source, flags), Succeeds());
  struct stat before = LstatOf(source);

  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full), Succeeds());

  EXPECT_THAT(copy, HasTimes(before));  // before reading it moves its atime
  EXPECT_EQ(ReadAll(copy), ReadAll(source));
  EXPECT_THAT(copy, HasOwner(1234, 5678));
  EXPECT_THAT(copy, HasMode(06750));
  EXPECT_THAT(copy, HasXattr("user.note", "hello"));
  EXPECT_THAT(copy, HasXattr("trusted.other", "t"));
  char sourceAcl[256], copyAcl[256];
  ssize_t a = ::lgetxattr(source.c_str(), "system.posix_acl_access", sourceAcl, sizeof sourceAcl);
  ssize_t b = ::lgetxattr(copy.c_str(), "system.posix_acl_access", copyAcl, sizeof copyAcl);
  ASSERT_GT(a, 0);
  EXPECT_EQ(std::string(sourceAcl, a), std::string(copyAcl, b > 0 ? b : 0));
  std::uint32_t copied = 0;
  ASSERT_THAT(VNFileFlags::makeDefault()->getFlags(copy, &copied), Succeeds());
  EXPECT_EQ(copied, flags);
  EXPECT_THAT(copy, HasInodeFlags(FS_IMMUTABLE_FL));
  VNFileFlags::makeDefault()->setFlags(source, 0);
  VNFileFlags::makeDefault()->setFlags(copy, 0);
}

// A default ACL on the destination's folder gives new files an ACL of their
// own; the copy of a file without one must not keep it.
TEST(CopyItem, DropsAnAclInheritedFromTheDestinationFolder) {
  VNTestDir dir;
  std::string source = dir / "plain", folder = dir / "inherits", copy = dir / "inherits/plain";
  VNWriteTestFile(source, "x", 0640);
  ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
  SetFacl("d:u:4321:rwx", folder);
  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full), Succeeds());
  EXPECT_THAT(copy, LacksXattr("system.posix_acl_access"));
  EXPECT_THAT(copy, HasMode(0640));
}

class CopyItemSparse : public testing::TestWithParam<std::pair<VNLoopImage::Kind, VNLoopImage::Kind>> {};

// Holes stay holes whichever way the data moves: a clone on one file system,
// copy_file_range or read/write between two.
TEST_P(CopyItemSparse, KeepsHoles) {
  VN_MOUNT_OR_SKIP(from, GetParam().first, kImageBytes);
  VN_MOUNT_OR_SKIP(to, GetParam().second, kImageBytes);
  std::string source = *from / "sparse";
  {
    int fd = ::open(source.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    std::string block(1 << 20, 'a');
    ASSERT_EQ(::pwrite(fd, block.data(), block.size(), 0), static_cast<ssize_t>(block.size()));
    ASSERT_EQ(::pwrite(fd, block.data(), block.size(), 16 << 20), static_cast<ssize_t>(block.size()));
    ASSERT_EQ(::ftruncate(fd, 40 << 20), 0);  // a trailing hole too
    ::close(fd);
  }
  for (bool readWrite : {false, true}) {
    std::string copy = *to / (readWrite ? "by-read-write" : "copy");
    auto faults = std::make_shared<VNFaultyFileSystemCalls>();
    if (readWrite) {
      faults->failNth(Call::Clone, 1, EXDEV, /*sticky=*/true);
      faults->failNth(Call::CopyRange, 1, EXDEV, /*sticky=*/true);
    }
    VNPlatformOverride<VNFileSystemCalls> seam(faults);
    ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full), Succeeds());
    struct stat st = LstatOf(copy);
    EXPECT_EQ(st.st_size, 40 << 20);
    EXPECT_LT(st.st_blocks * 512, 8 << 20) << copy << " lost its holes";
    EXPECT_EQ(ReadAll(copy), ReadAll(source));
    if (readWrite) {
      EXPECT_GT(faults->calls(Call::Write), 0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, CopyItemSparse,
                         testing::Values(std::pair{VNLoopImage::Kind::XFS, VNLoopImage::Kind::XFS},
                                         std::pair{VNLoopImage::Kind::Btrfs, VNLoopImage::Kind::XFS}),
                         [](const auto& info) {
                           return info.param.first == info.param.second ? "WithinXFS" : "BtrfsToXFS";
                         });

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
    ASSERT_THAT(copier->copyItem(dir / name, dir / (std::string(name) + ".copy"), VNCopyOptionSet::Full),
                Succeeds());
    EXPECT_EQ(ReadAll(dir / (std::string(name) + ".copy")), std::string(10000, *name));
  }
  EXPECT_EQ(faults->calls(Call::Clone), 1);
}

// Failures while writing: the errno comes back with the step and the path
// that failed (the destination for a write, the source for a read), and
// the half-written file is gone. A failure that is not a refusal never
// falls back to another method.
TEST(CopyItem, FailedDataLeavesNoHalfWrittenFile) {
  VNTestDir dir;
  std::string source = dir / "big";
  WritePatternFile(source, 5 << 20);
  struct Case {
    Call call;
    int code;
    bool onSource;
  } cases[] = {{Call::Clone, EIO, false}, {Call::Clone, ENOSPC, false}, {Call::CopyRange, EIO, false},
               {Call::Write, ENOSPC, false}, {Call::Read, EIO, true}, {Call::SetXattr, EIO, false}};
  ASSERT_EQ(::lsetxattr(source.c_str(), "user.a", "1", 1, 0), 0);
  for (const Case& c : cases) {
    auto faults = std::make_shared<VNFaultyFileSystemCalls>();
    faults->failNth(Call::Clone, 1, EOPNOTSUPP);
    faults->failNth(Call::CopyRange, 1, EXDEV);
    faults->failNth(c.call, c.call == Call::Write || c.call == Call::Read ? 3 : 1, c.code);
    VNPlatformOverride<VNFileSystemCalls> seam(faults);
    std::string copy = dir / "copy";
    EXPECT_THAT(VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full),
                FailsWith(c.code, c.onSource ? source : copy))
        << static_cast<int>(c.call);
    EXPECT_NE(::access(copy.c_str(), F_OK), 0) << "half-written file left after " << static_cast<int>(c.call);
  }
}

// A real full file system: ENOSPC names the destination, which is removed.
TEST(CopyItem, FullFileSystemGivesENOSPCAndRemovesTheFile) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  VNTestDir dir;
  std::string source = dir / "eight-mib";
  WritePatternFile(source, 8 << 20);
  std::string filler = *image / "filler";
  std::string output;
  std::uint64_t free = FreeBytes(image->mountPoint());
  ASSERT_EQ(VNRunCommand("fallocate -l " + std::to_string(free - (2 << 20)) + " " + filler, &output), 0)
      << output;
  std::string copy = *image / "copy";
  EXPECT_THAT(VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full),
              FailsWith(ENOSPC, copy));
  EXPECT_NE(::access(copy.c_str(), F_OK), 0);
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
        VNFsStatus status = VNCopyItem::makeDefault()->copyItem(source, copy, VNCopyOptionSet::Full);
        bool removed = ::access(copy.c_str(), F_OK) != 0;
        ::_exit(status.code == EACCES && status.path == source && removed ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// The destination is never followed: a symbolic link there makes the copy
// fail (file and directory alike) unless unlink-first removes the link
// itself; the file it points to never changes.
TEST(CopyItem, NeverFollowsASymbolicLinkAtTheDestination) {
  VNTestDir dir;
  std::string sentinel = dir / "sentinel", source = dir / "source", folder = dir / "folder";
  VNWriteTestFile(sentinel, "keep me", 0644);
  VNWriteTestFile(source, "new contents");
  ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
  std::string trap = dir / "trap";
  ASSERT_EQ(::symlink(sentinel.c_str(), trap.c_str()), 0);
  auto copier = VNCopyItem::makeDefault();

  EXPECT_THAT(copier->copyItem(source, trap, VNCopyOption::Data | VNCopyOption::NoFollow),
              FailsWith(ELOOP, trap));
  EXPECT_THAT(copier->copyItem(source, trap, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(copier->copyItem(folder, trap, VNCopyOptionSet::Directory), FailsWith(ENOTDIR, trap));
  EXPECT_THAT(trap, IsSymlinkTo(sentinel));
  EXPECT_EQ(ReadAll(sentinel), "keep me");
  EXPECT_THAT(sentinel, HasMode(0644));

  ASSERT_THAT(copier->copyItem(source, trap, VNCopyOptionSet::Full), Succeeds());
  EXPECT_EQ(ReadAll(trap), "new contents");
  EXPECT_EQ(ReadAll(sentinel), "keep me");
}

// Unlink-first replaces whatever kind of item is there (a FIFO, an empty
// folder) instead of writing into it; without it an existing regular file
// is overwritten and any other kind refused.
TEST(CopyItem, UnlinkFirstReplacesAndWithoutItOnlyFilesAreOverwritten) {
  VNTestDir dir;
  std::string source = dir / "source";
  VNWriteTestFile(source, "fresh");
  auto copier = VNCopyItem::makeDefault();
  std::string fifo = dir / "fifo", empty = dir / "empty", full = dir / "full", file = dir / "file";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(::mkdir(empty.c_str(), 0700), 0);
  ASSERT_EQ(::mkdir(full.c_str(), 0700), 0);
  VNWriteTestFile(full + "/inside", "i");
  VNWriteTestFile(file, "an older and longer text");

  EXPECT_THAT(copier->copyItem(source, fifo, VNCopyOption::Data | VNCopyOption::NoFollow),
              FailsWith(EEXIST, fifo));
  EXPECT_THAT(copier->copyItem(source, file, VNCopyOption::Data | VNCopyOption::NoFollow), Succeeds());
  EXPECT_EQ(ReadAll(file), "fresh");
  for (const std::string& target : {fifo, empty}) {
    ASSERT_THAT(copier->copyItem(source, target, VNCopyOptionSet::Full), Succeeds()) << target;
    EXPECT_EQ(ReadAll(target), "fresh");
  }
  EXPECT_THAT(copier->copyItem(source, full, VNCopyOptionSet::Full), FailsWith(ENOTEMPTY, full));
  EXPECT_EQ(ReadAll(full + "/inside"), "i");
}

// Special items are laid down as the same kind with their metadata; a
// symbolic link is copied as itself with its own owner and times.
TEST(CopyItem, SpecialItemsAndSymbolicLinksKeepTheirKind) {
  VNTestDir dir;
  auto copier = VNCopyItem::makeDefault();
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

  struct stat fifoBefore = LstatOf(fifo), linkBefore = LstatOf(link);

  ASSERT_THAT(copier->copyItem(fifo, dir / "fifo.copy", VNCopyOptionSet::Full), Succeeds());
  EXPECT_TRUE(S_ISFIFO(LstatOf(dir / "fifo.copy").st_mode));
  EXPECT_THAT(dir / "fifo.copy", HasMode(0610));
  EXPECT_THAT(dir / "fifo.copy", HasTimes(fifoBefore));
  ASSERT_THAT(copier->copyItem(socketPath, dir / "socket.copy", VNCopyOptionSet::Full), Succeeds());
  EXPECT_TRUE(S_ISSOCK(LstatOf(dir / "socket.copy").st_mode));
  ASSERT_THAT(copier->copyItem(link, dir / "link.copy", VNCopyOptionSet::Full), Succeeds());
  EXPECT_THAT(dir / "link.copy", HasTimes(linkBefore));  // before reading it moves its atime
  EXPECT_THAT(dir / "link.copy", IsSymlinkTo("../somewhere/else"));
  EXPECT_THAT(dir / "link.copy", HasOwner(42, 43));

  if (::geteuid() == 0) {
    std::string device = dir / "null";
    ASSERT_EQ(::mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    ASSERT_THAT(copier->copyItem(device, dir / "null.copy", VNCopyOptionSet::Full), Succeeds());
    EXPECT_EQ(LstatOf(dir / "null.copy").st_rdev, makedev(1, 3));
    EXPECT_TRUE(S_ISCHR(LstatOf(dir / "null.copy").st_mode));
  }
  std::string missing = dir / "missing";
  EXPECT_THAT(copier->copyItem(missing, dir / "x", VNCopyOptionSet::Full), FailsWith(ENOENT, missing));
}

// A folder's first copy leaves its stat fields out; they land on the second
// call, after its contents, so its times are the template's at the end.
TEST(CopyItem, DirectoryStatFieldsLandAfterItsContents) {
  VNTestDir dir;
  std::string source = dir / "tree", copy = dir / "tree.copy";
  ASSERT_EQ(::mkdir(source.c_str(), 0750), 0);
  VNWriteTestFile(source + "/a", "a");
  SetTimes(source, 1000000000, 1100000000);
  auto copier = VNCopyItem::makeDefault();
  ASSERT_THAT(copier->copyItem(source, copy, VNCopyOptionSet::Directory), Succeeds());
  EXPECT_THAT(copy, HasMode(0700));
  ASSERT_THAT(copier->copyItem(source, copy, VNCopyOptionSet::Directory), Succeeds())
      << "an existing folder is reused";
  ASSERT_THAT(copier->copyItem(source + "/a", copy + "/a", VNCopyOptionSet::Full), Succeeds());
  ASSERT_THAT(copier->copyItem(source, copy, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(copy, HasMode(0750));
  EXPECT_THAT(copy, HasTimes(LstatOf(source)));
}

// The stat fields of a folder or file laid on a symbolic link (the item
// the link stands for) reach the link itself, never what it points to.
TEST(CopyItem, StatFieldsOntoASymbolicLinkStayOnTheLink) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  std::string source = *image / "folder", target = *image / "target", link = *image / "link";
  ASSERT_EQ(::mkdir(source.c_str(), 0755), 0);
  ASSERT_EQ(::chown(source.c_str(), 501, 20), 0);
  SetTimes(source, 1000000000, 1100000000);
  ASSERT_THAT(VNFileFlags::makeDefault()->setFlags(source, VNFileFlag::Restricted), Succeeds());
  VNWriteTestFile(target, "t");
  ASSERT_EQ(::symlink("target", link.c_str()), 0);
  struct stat targetBefore = LstatOf(target);

  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, link, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(link, HasOwner(501, 20));
  EXPECT_THAT(link, HasTimes(LstatOf(source)));
  EXPECT_THAT(link, HasXattr(VNFileFlagsAttributeName, "0x00080000"));
  EXPECT_THAT(target, HasOwner(targetBefore.st_uid, targetBefore.st_gid));
  EXPECT_THAT(target, HasTimes(targetBefore));
  EXPECT_THAT(target, LacksXattr(VNFileFlagsAttributeName));
  EXPECT_THAT(target, HasMode(targetBefore.st_mode & 07777));
}

}  // namespace

namespace {

// Items named relative to directory descriptors stay with those folders
// even when the folders are renamed meanwhile, so a walk holding
// descriptors cannot be redirected through a swapped path.
TEST(CopyItem, NamesRelativeToDirectoryDescriptorsFollowTheFolders) {
  VNTestDir dir;
  ASSERT_EQ(::mkdir((dir / "from").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "to").c_str(), 0755), 0);
  VNWriteTestFile(dir / "from/file", "relative", 0604);
  int from = ::open((dir / "from").c_str(), O_DIRECTORY | O_RDONLY | O_CLOEXEC);
  int to = ::open((dir / "to").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(from, 0);
  ASSERT_GE(to, 0);
  ASSERT_EQ(::rename((dir / "to").c_str(), (dir / "moved").c_str()), 0);
  ASSERT_EQ(::mkdir((dir / "to").c_str(), 0755), 0);

  EXPECT_THAT(VNCopyItem::makeDefault()->copyItem(VNAtPath(from, "file"), VNAtPath(to, "file"),
                                                  VNCopyOptionSet::Full),
              Succeeds());
  EXPECT_EQ(ReadAll(dir / "moved/file"), "relative");
  EXPECT_THAT(dir / "moved/file", HasMode(0604));
  EXPECT_NE(::access((dir / "to/file").c_str(), F_OK), 0);
  EXPECT_THAT(VNCopyItem::makeDefault()->copyItem(VNAtPath(from, "gone"), VNAtPath(to, "x"),
                                                  VNCopyOptionSet::Full),
              FailsWith(ENOENT, "gone"));
  ::close(from);
  ::close(to);
}

}  // namespace

namespace {

// Metadata onto an item that is already there and locked (a folder whose
// stat fields come after its contents, a second run over a target): the
// steps still land, and the flags end as the source's, or as they were
// when the copy does not carry flags.
TEST(CopyItem, MetadataLandsOnALockedDestination) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string source = *image / "source", locked = *image / "locked";
  ASSERT_EQ(::mkdir(source.c_str(), 0751), 0);
  ASSERT_EQ(::lsetxattr(source.c_str(), "user.tag", "v", 1, 0), 0);
  SetTimes(source, 1000000000, 1100000000);
  ASSERT_THAT(flags->setFlags(source, VNFileFlag::Restricted), Succeeds());
  ASSERT_EQ(::mkdir(locked.c_str(), 0700), 0);
  ASSERT_THAT(flags->setFlags(locked, VNFileFlag::UserImmutable | VNFileFlag::UserAppendOnly), Succeeds());

  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, locked, VNCopyOptionSet::Directory), Succeeds());
  EXPECT_THAT(locked, HasXattr("user.tag", "v"));
  std::uint32_t word = 0;
  ASSERT_THAT(flags->getFlags(locked, &word), Succeeds());
  EXPECT_EQ(word, VNFileFlag::UserImmutable | VNFileFlag::UserAppendOnly) << "flags put back";

  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, locked, VNCopyOptionSet::StatOnly), Succeeds());
  EXPECT_THAT(locked, HasMode(0751));
  EXPECT_THAT(locked, HasTimes(LstatOf(source)));
  ASSERT_THAT(flags->getFlags(locked, &word), Succeeds());
  EXPECT_EQ(word, VNFileFlag::Restricted);
}

// The caller's walk saw a regular file that has become a FIFO since: the
// copy neither blocks opening it nor reads it, but lays down a FIFO; with
// the status of a file that is there, it is copied from the one open.
TEST(CopyItem, StaleStatusOfTheSourceIsNotTrusted) {
  VNTestDir dir;
  std::string fifo = dir / "fifo", file = dir / "file";
  VNWriteTestFile(file, "contents", 0640);
  struct stat seen = LstatOf(file);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  auto copier = VNCopyItem::makeDefault();

  ASSERT_THAT(copier->copyItem(fifo, dir / "fifo.copy", VNCopyOptionSet::Full, &seen), Succeeds());
  EXPECT_TRUE(S_ISFIFO(LstatOf(dir / "fifo.copy").st_mode));
  ASSERT_THAT(copier->copyItem(file, dir / "file.copy", VNCopyOptionSet::Full, &seen), Succeeds());
  EXPECT_EQ(VNReadTestFile(dir / "file.copy"), "contents");
  EXPECT_THAT(dir / "file.copy", HasMode(0640));
}

// XFS gives a new file the no-dump flag of its folder. The copy must not
// take the new file's flags for granted: it ends with the source's word.
TEST(CopyItem, FlagsInheritedFromTheDestinationFolderAreCleared) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::XFS, kImageBytes);
  auto flags = VNFileFlags::makeDefault();
  std::string source = *image / "source", folder = *image / "nodump";
  VNWriteTestFile(source, "x", 0644);
  ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
  ASSERT_THAT(flags->setFlags(folder, VNFileFlag::NoDump), Succeeds());
  VNWriteTestFile(folder + "/probe", "", 0644);
  std::uint32_t word = 0;
  ASSERT_THAT(flags->getFlags(folder + "/probe", &word), Succeeds());
  if (word != VNFileFlag::NoDump) GTEST_SKIP() << "this kernel's XFS does not pass no-dump on to new files";

  ASSERT_THAT(VNCopyItem::makeDefault()->copyItem(source, folder + "/copy", VNCopyOptionSet::Full), Succeeds());
  ASSERT_THAT(flags->getFlags(folder + "/copy", &word), Succeeds());
  EXPECT_EQ(word, 0u);
}

}  // namespace
