#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <random>

#include "BomTestSupport.h"
#include "support/VNTest.h"

namespace {

class BomScan : public ::testing::Test {
 protected:
  VNBomStorePtr scan(uint16_t options = BomOptionStat | BomOptionChecksums) {
    return VNBomStorePtr(bom_new_from_directory(bomPath().c_str(), tree().c_str(), options));
  }
  std::string tree() const { return dir_ / "tree"; }
  std::string bomPath() const { return dir_ / "out.bom"; }
  std::string at(const std::string& relative) const { return tree() + "/" + relative; }
  void SetUp() override { VNMakeFolders(tree()); }
  VNTestDir dir_;
};

// Every kind of item in pre-order, links recorded as links; the store
// commits and reads back the same, the highest type code included.
TEST_F(BomScan, RecordsEveryTypeInPreOrderWithoutFollowingLinks) {
  VNMakeFolders(at("a"), 0750);
  VNWriteTestFile(at("a/b/c"), "c");
  VNMakeFolders(at("a.b"));
  VNWriteTestFile(at("a-b"), "12345", 0600);
  ASSERT_EQ(::symlink("../a.b", at("a/up").c_str()), 0);
  ASSERT_EQ(::symlink(dir_.path().c_str(), at("outside").c_str()), 0);
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0644), 0);
  ASSERT_EQ(::mknod(at("chr").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
  ASSERT_EQ(::mknod(at("blk").c_str(), S_IFBLK | 0600, makedev(7, 0)), 0);
  int sock = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(at("sock").size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, at("sock").c_str());
  ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(sock);

  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  const std::vector<std::string> expected = {"a", "a/b", "a/b/c", "a/up", "a-b", "a.b", "blk", "chr", "fifo", "outside", "sock"};
  EXPECT_EQ(walkPaths(store.get()), expected);
  ASSERT_EQ(bom_commit(store.get()), 0);
  VNBomStorePtr reread(bom_open(bomPath().c_str()));
  ASSERT_TRUE(reread);
  EXPECT_EQ(walkPaths(reread.get()), expected);
  const std::pair<const char*, BomEntryType> types[] = {
      {".", BomEntryTypeDirectory}, {"a/b/c", BomEntryTypeFile}, {"outside", BomEntryTypeSymlink},
      {"chr", BomEntryTypeCharDevice}, {"blk", BomEntryTypeBlockDevice}, {"fifo", BomEntryTypeFIFO},
      {"sock", BomEntryTypeSocket}};
  for (auto [path, type] : types) EXPECT_EQ(typeAt(reread.get(), path), type) << path;

  VNBomEntryPtr link(bom_entry_at_path(reread.get(), "./a/up"));
  EXPECT_STREQ(bom_entry_symlink_target(link.get()), "../a.b");
  EXPECT_EQ(bom_entry_mode(link.get()) & S_IFMT, S_IFLNK);
  EXPECT_STREQ(bom_entry_short_name(link.get()), "up");
  EXPECT_STREQ(bom_entry_path_name(link.get()), "a/up");
  EXPECT_EQ(bom_entry_checksum(link.get()), 0u);
  EXPECT_EQ(bom_entry_flags(link.get()), BomOptionStat);
  VNBomEntryPtr file(bom_entry_at_path(reread.get(), "a-b"));
  EXPECT_EQ(bom_entry_mode(file.get()), S_IFREG | 0600);
  EXPECT_EQ(bom_entry_size(file.get()), 5u);
  EXPECT_EQ(bom_entry_flags(file.get()), BomOptionStat | BomOptionChecksums);
  EXPECT_EQ(bom_entry_mode(VNBomEntryPtr(bom_entry_at_path(reread.get(), "a")).get()), S_IFDIR | 0750);
}

// The recorded checksum and the one bom_crc32_for_file gives are zlib's
// CRC-32, as Python computes it; failures leave the outputs untouched.
TEST_F(BomScan, ChecksumsEqualZlibAndBomCrc32ForFile) {
  std::string big(3 * 256 * 1024 + 17, '\0');
  std::mt19937 random(7);
  for (char& c : big) c = static_cast<char>(random());
  VNWriteTestFile(at("big"), big);
  VNWriteTestFile(at("empty"), "");
  VNWriteTestFile(at("text"), "The quick brown fox jumps over the lazy dog");
  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  std::string recorded, python;
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
  ASSERT_EQ(VNRunCommand("python3 -c 'import sys, zlib\nfor p in sys.argv[1:]: print(zlib.crc32(open(p, \"rb\").read()))' " +
                             at("big") + " " + at("empty") + " " + at("text"), &python), 0);
  EXPECT_EQ(recorded, python);
  EXPECT_EQ(bom_entry_checksum(VNBomEntryPtr(bom_entry_at_path(store.get(), "text")).get()), 0x414FA339u);

  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0644), 0);
  uint32_t crc = 42;
  uint64_t length = 42;
  for (const std::string& path : {at("missing"), tree(), at("fifo")}) EXPECT_NE(bom_crc32_for_file(path.c_str(), &crc, &length), 0);
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

// Names of one file share the first name in walk order that fits the
// buffer; a lone name in the tree, a single file and a folder have no group.
TEST_F(BomScan, HardLinkGroupsShareTheFirstNameThatFits) {
  VNWriteTestFile(at("d/z"), "shared");
  ASSERT_EQ(::link(at("d/z").c_str(), at("a").c_str()), 0);
  ASSERT_EQ(::link(at("d/z").c_str(), at("d.x").c_str()), 0);
  VNWriteTestFile(at("single"), "one");
  VNWriteTestFile(dir_ / "outside", "out");
  ASSERT_EQ(::link((dir_ / "outside").c_str(), at("lonely").c_str()), 0);
  std::string longName;
  for (int i = 0; i < 9; ++i) longName += std::string(120, 'a' + i) + "/";
  longName += "f";
  ASSERT_GE(longName.size(), size_t{BomHardlinkPathBufferSize});
  VNWriteTestFile(at(longName), "x");
  ASSERT_EQ(::link(at(longName).c_str(), at("z").c_str()), 0);
  VNBomStorePtr store = scan();
  ASSERT_TRUE(store);
  char buffer[BomHardlinkPathBufferSize];
  for (auto [name, first] : {std::pair<std::string, const char*>{"a", "a"}, {"d/z", "a"}, {"d.x", "a"}, {longName, "z"}}) {
    std::memset(buffer, 'x', sizeof buffer);
    ASSERT_TRUE(bom_entry_hardlink_path(store.get(), VNBomEntryPtr(bom_entry_at_path(store.get(), name.c_str())).get(), 0, buffer));
    EXPECT_STREQ(buffer, first) << name;
  }
  for (const char* name : {"single", "lonely", "d"}) {
    std::strcpy(buffer, "untouched");
    EXPECT_FALSE(bom_entry_hardlink_path(store.get(), VNBomEntryPtr(bom_entry_at_path(store.get(), name)).get(), 0, buffer));
    EXPECT_STREQ(buffer, "untouched");
  }
  VNBomEntryPtr member(bom_entry_at_path(store.get(), "d.x"));
  EXPECT_FALSE(bom_entry_hardlink_path(store.get(), member.get(), 1, buffer));
  EXPECT_FALSE(bom_entry_hardlink_path(nullptr, member.get(), 0, buffer));
}

// A tree that cannot be scanned fails with the reason, before anything is
// written; a root alone walks to nothing.
TEST_F(BomScan, MissingUnreadableAndEmptyTrees) {
  VNError error;
  EXPECT_FALSE(VNBomStorePtr(VNBomNewFromDirectory(bomPath().c_str(), (dir_ / "none").c_str(), BomOptionChecksums, &error)));
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir_ / "none");
  VNWriteTestFile(dir_ / "file", "x");
  EXPECT_FALSE(VNBomStorePtr(bom_new_from_directory(bomPath().c_str(), (dir_ / "file").c_str(), 0)));
  EXPECT_FALSE(VNBomStorePtr(bom_new_from_directory(nullptr, tree().c_str(), 0)));
  EXPECT_FALSE(VNExists(bomPath())) << "nothing is written before commit";
  VNBomStorePtr store = scan();
  VNBomEntryPtr root(bom_root_entry(store.get()));
  ASSERT_TRUE(root);
  EXPECT_STREQ(bom_entry_path_name(root.get()), ".");
  EXPECT_STREQ(bom_entry_short_name(root.get()), ".");
  EXPECT_TRUE(walkPaths(store.get()).empty());
}

}  // namespace
