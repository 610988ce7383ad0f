#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <random>

#include "BomTestSupport.h"
#include "foundation/VNError.h"
#include "support/VNTestDir.h"

namespace {

class BomScan : public ::testing::Test {
 protected:
  VNBomStorePtr scan(uint16_t options = BomOptionStat | BomOptionChecksums) {
    return VNBomStorePtr(bom_new_from_directory(bomPath().c_str(), tree().c_str(), options));
  }
  std::string tree() const { return dir_ / "tree"; }
  std::string bomPath() const { return dir_ / "out.bom"; }
  std::string at(const std::string& relative) const { return tree() + "/" + relative; }

  void SetUp() override { ASSERT_EQ(::mkdir(tree().c_str(), 0755), 0); }

  VNTestDir dir_;
};

// Python's zlib.crc32 of each file, one decimal number per line.
std::string pythonCrcs(const std::vector<std::string>& paths) {
  std::string command =
      "python3 -c 'import sys, zlib\nfor p in sys.argv[1:]: print(zlib.crc32(open(p, \"rb\").read()))'";
  for (const auto& path : paths) command += " '" + path + "'";
  CommandResult result = runCommand(command);
  EXPECT_EQ(result.status, 0);
  return result.output;
}

}  // namespace

TEST_F(BomScan, RecordsEveryTypeInPreOrderWithoutFollowingLinks) {
  ASSERT_EQ(::mkdir(at("a").c_str(), 0750), 0);
  ASSERT_EQ(::mkdir(at("a/b").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(at("a.b").c_str(), 0755), 0);
  VNWriteTestFile(at("a/b/c"), "c");
  VNWriteTestFile(at("a-b"), "12345", 0600);
  ASSERT_EQ(::symlink("../a.b", at("a/up").c_str()), 0);
  ASSERT_EQ(::symlink(dir_.path().c_str(), at("outside").c_str()), 0);
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0644), 0);
  ASSERT_EQ(::mknod(at("chr").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
  ASSERT_EQ(::mknod(at("blk").c_str(), S_IFBLK | 0600, makedev(7, 0)), 0);
  int sock = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string socketPath = at("sock");
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socketPath.c_str());
  ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(sock);

  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  EXPECT_EQ(walkPaths(store.get()),
            (std::vector<std::string>{"a", "a/b", "a/b/c", "a/up", "a-b", "a.b", "blk", "chr",
                                      "fifo", "outside", "sock"}));
  EXPECT_EQ(typeAt(store.get(), "."), BomEntryTypeDirectory);
  EXPECT_EQ(typeAt(store.get(), "a/b/c"), BomEntryTypeFile);
  EXPECT_EQ(typeAt(store.get(), "outside"), BomEntryTypeSymlink);
  EXPECT_EQ(typeAt(store.get(), "chr"), BomEntryTypeCharDevice);
  EXPECT_EQ(typeAt(store.get(), "blk"), BomEntryTypeBlockDevice);
  EXPECT_EQ(typeAt(store.get(), "fifo"), BomEntryTypeFIFO);
  EXPECT_EQ(typeAt(store.get(), "sock"), BomEntryTypeSocket);

  VNBomEntryPtr link(bom_entry_at_path(store.get(), "./a/up"));
  EXPECT_STREQ(bom_entry_symlink_target(link.get()), "../a.b");
  EXPECT_EQ(bom_entry_mode(link.get()) & S_IFMT, S_IFLNK);
  EXPECT_STREQ(bom_entry_short_name(link.get()), "up");
  EXPECT_STREQ(bom_entry_path_name(link.get()), "a/up");
  EXPECT_EQ(bom_entry_checksum(link.get()), 0u);
  EXPECT_EQ(bom_entry_flags(link.get()), BomOptionStat);

  VNBomEntryPtr file(bom_entry_at_path(store.get(), "a-b"));
  EXPECT_EQ(bom_entry_mode(file.get()), S_IFREG | 0600);
  EXPECT_EQ(bom_entry_size(file.get()), 5u);
  EXPECT_EQ(bom_entry_flags(file.get()), BomOptionStat | BomOptionChecksums);
  VNBomEntryPtr directory(bom_entry_at_path(store.get(), "a"));
  EXPECT_EQ(bom_entry_mode(directory.get()), S_IFDIR | 0750);
}

TEST_F(BomScan, ChecksumsEqualZlibAndBomCrc32ForFile) {
  std::string big(3 * 256 * 1024 + 17, '\0');
  std::mt19937 random(7);
  for (char& c : big) c = static_cast<char>(random());
  VNWriteTestFile(at("big"), big);
  VNWriteTestFile(at("empty"), "");
  VNWriteTestFile(at("text"), "The quick brown fox jumps over the lazy dog");

  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  std::string recorded;
  for (const char* name : {"big", "empty", "text"}) {
    VNBomEntryPtr entry(bom_entry_at_path(store.get(), name));
    ASSERT_TRUE(entry) << name;
    recorded += std::to_string(bom_entry_checksum(entry.get())) + "\n";
    uint32_t crc = 1;
    uint64_t length = 1;
    ASSERT_EQ(bom_crc32_for_file(at(name).c_str(), &crc, &length), 0) << name;
    EXPECT_EQ(crc, bom_entry_checksum(entry.get())) << name;
    EXPECT_EQ(length, bom_entry_size(entry.get())) << name;
  }
  EXPECT_EQ(recorded, pythonCrcs({at("big"), at("empty"), at("text")}));
  VNBomEntryPtr text(bom_entry_at_path(store.get(), "text"));
  EXPECT_EQ(bom_entry_checksum(text.get()), 0x414FA339u);
  VNBomEntryPtr empty(bom_entry_at_path(store.get(), "empty"));
  EXPECT_EQ(bom_entry_checksum(empty.get()), 0u);
}

TEST(BomCrc32ForFile, FailsWithoutTouchingOutputsAndNeverBlocks) {
  VNTestDir dir;
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0644), 0);
  uint32_t crc = 42;
  uint64_t length = 42;
  EXPECT_NE(bom_crc32_for_file((dir / "missing").c_str(), &crc, &length), 0);
  EXPECT_NE(bom_crc32_for_file(dir.path().c_str(), &crc, &length), 0);
  EXPECT_NE(bom_crc32_for_file((dir / "fifo").c_str(), &crc, &length), 0);
  EXPECT_NE(bom_crc32_for_file(nullptr, &crc, &length), 0);
  EXPECT_EQ(crc, 42u);
  EXPECT_EQ(length, 42u);
}

TEST_F(BomScan, OptionsSelectStatFieldsAndChecksums) {
  VNWriteTestFile(at("f"), "data");
  ASSERT_EQ(::lchown(at("f").c_str(), 1234, 5678), 0);
  struct timespec times[2] = {{1000000000, 0}, {1234567890, 500}};
  ASSERT_EQ(::utimensat(AT_FDCWD, at("f").c_str(), times, 0), 0);

  VNBomStorePtr full = scan();
  VNBomEntryPtr entry(bom_entry_at_path(full.get(), "f"));
  EXPECT_EQ(bom_entry_uid(entry.get()), 1234u);
  EXPECT_EQ(bom_entry_gid(entry.get()), 5678u);
  EXPECT_EQ(bom_entry_mtime(entry.get()), 1234567890);
  EXPECT_EQ(bom_entry_checksum(entry.get()), 0xADF3F363u);

  VNBomStorePtr bare = scan(0);
  VNBomEntryPtr plain(bom_entry_at_path(bare.get(), "f"));
  EXPECT_EQ(bom_entry_flags(plain.get()), 0);
  EXPECT_EQ(bom_entry_uid(plain.get()), 0u);
  EXPECT_EQ(bom_entry_mtime(plain.get()), 0);
  EXPECT_EQ(bom_entry_checksum(plain.get()), 0u);
  EXPECT_EQ(bom_entry_size(plain.get()), 4u);
}

TEST_F(BomScan, HardLinkGroupsShareTheFirstNameInWalkOrder) {
  ASSERT_EQ(::mkdir(at("d").c_str(), 0755), 0);
  VNWriteTestFile(at("d/z"), "shared");
  ASSERT_EQ(::link(at("d/z").c_str(), at("a").c_str()), 0);
  ASSERT_EQ(::link(at("d/z").c_str(), at("d.x").c_str()), 0);
  VNWriteTestFile(at("single"), "one");
  // Two names of which only one lies in the tree: no group.
  VNWriteTestFile(dir_ / "outside", "out");
  ASSERT_EQ(::link((dir_ / "outside").c_str(), at("lonely").c_str()), 0);

  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  char buffer[BomHardlinkPathBufferSize];
  for (const char* name : {"a", "d/z", "d.x"}) {
    VNBomEntryPtr entry(bom_entry_at_path(store.get(), name));
    std::memset(buffer, 'x', sizeof buffer);
    ASSERT_TRUE(bom_entry_hardlink_path(store.get(), entry.get(), 0, buffer)) << name;
    EXPECT_STREQ(buffer, "a") << name;
  }
  for (const char* name : {"single", "lonely", "d"}) {
    VNBomEntryPtr entry(bom_entry_at_path(store.get(), name));
    std::strcpy(buffer, "untouched");
    EXPECT_FALSE(bom_entry_hardlink_path(store.get(), entry.get(), 0, buffer)) << name;
    EXPECT_STREQ(buffer, "untouched");
  }
  VNBomEntryPtr member(bom_entry_at_path(store.get(), "d.x"));
  EXPECT_FALSE(bom_entry_hardlink_path(store.get(), member.get(), 1, buffer));
  EXPECT_FALSE(bom_entry_hardlink_path(nullptr, member.get(), 0, buffer));
}

TEST_F(BomScan, GroupPathIsTheFirstNameThatFitsTheBuffer) {
  std::string relative;
  for (int i = 0; i < 9; ++i) {
    relative += std::string(120, 'a' + i) + "/";
    ASSERT_EQ(::mkdir(at(relative).c_str(), 0755), 0);
  }
  std::string longName = relative + "f";
  ASSERT_GE(longName.size(), size_t{BomHardlinkPathBufferSize});
  VNWriteTestFile(at(longName), "x");
  ASSERT_EQ(::link(at(longName).c_str(), at("z").c_str()), 0);
  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  char buffer[BomHardlinkPathBufferSize];
  VNBomEntryPtr first(bom_entry_at_path(store.get(), longName.c_str()));
  ASSERT_TRUE(bom_entry_hardlink_path(store.get(), first.get(), 0, buffer));
  EXPECT_STREQ(buffer, "z");
}

TEST_F(BomScan, FailsWithTheReasonForAMissingOrUnreadableTree) {
  VNError error;
  VNBomStorePtr missing(VNBomNewFromDirectory(bomPath().c_str(), (dir_ / "none").c_str(),
                                              BomOptionChecksums, &error));
  EXPECT_FALSE(missing);
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir_ / "none");

  VNWriteTestFile(dir_ / "file", "x");
  EXPECT_FALSE(VNBomStorePtr(bom_new_from_directory(bomPath().c_str(), (dir_ / "file").c_str(), 0)));
  EXPECT_FALSE(VNBomStorePtr(bom_new_from_directory(nullptr, tree().c_str(), 0)));
  EXPECT_EQ(::access(bomPath().c_str(), F_OK), -1) << "nothing is written before commit";
}

TEST_F(BomScan, RootOnlyTreeWalksToNothing) {
  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  VNBomEntryPtr root(bom_root_entry(store.get()));
  ASSERT_TRUE(root);
  EXPECT_STREQ(bom_entry_path_name(root.get()), ".");
  EXPECT_STREQ(bom_entry_short_name(root.get()), ".");
  VNBomEnumeratorPtr walk(bom_enumerator_new(store.get(), root.get()));
  EXPECT_EQ(bom_enumerator_next(walk.get()), nullptr);
  EXPECT_EQ(bom_enumerator_next(walk.get()), nullptr) << "a finished walk stays finished";
}
