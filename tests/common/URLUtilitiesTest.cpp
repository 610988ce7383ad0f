#include <openssl/sha.h>

#include "common/VNURLUtilities.h"
#include "support/VNTest.h"

using namespace VNUtilities;

namespace {

VNValue::Data sha256(const std::string& bytes) {
  VNValue::Data digest(SHA256_DIGEST_LENGTH);
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
  return digest;
}

// Runs in a child: changes the root to `root` and counts the cases whose
// "/private" form is wrong.
int privateFormFailures(const std::string& root) {
  if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) return 100;
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"/var/db/x", false, "/private/var/db/x"}, {"/var/db/x", true, "/private/var/db/x"},
      {"/private/var/db", false, "/private/var/db"}, {"/var", false, "/private/var"}, {"/", true, "/"},
      // Only a top-level link counts: "//srv" is no link.
      {"/srv/var/db", false, "/srv/var/db"}, {"/srv/var/db", true, "/private/var/db"},
  };
  int failures = 0;
  for (const auto& [path, expand, want] : cases)
    failures += VN_URLByStandardizingPathAndFullyExpandSymlinks(VNURL(path), expand).path() != want;
  return failures;
}

}  // namespace

// Dots go before links are looked at; links above missing components are
// expanded; what cannot be resolved (a loop, a path too long, odd bytes)
// stays as written; a receiver ending in "/" gives a result ending in "/".
TEST(URLStandardize, DotsLinksAndNamesThatCannotBeResolved) {
  VNTestDir dir;
  const std::string top = std::filesystem::canonical(dir.path());
  VNMakeFolders(top + "/real");
  VNMakeFolders(top + "/name\nwith newline");
  for (auto [target, name] : {std::pair<std::string, const char*>{"real", "link"}, {top + "/nowhere/x", "dangling"},
                              {"loop2", "loop1"}, {"loop1", "loop2"}, {"../up", "relative"}})
    ASSERT_EQ(::symlink(target.c_str(), (top + "/" + name).c_str()), 0);
  std::string deep = top;
  for (int i = 0; i < 40; ++i) deep += "/" + std::string(200, 'd');
  ASSERT_GT(deep.size(), size_t{PATH_MAX});
  const std::string odd = top + "/name\nwith newline/%20 and space";
  const std::tuple<std::string, bool, std::string> cases[] = {
      {"/nonexistent/./a//b/../c", false, "/nonexistent/a/c"},
      {"/../..", false, "/"},
      {"/a/b/../../..", false, "/"},
      {dir / "link/missing1/missing2", true, top + "/real/missing1/missing2"},
      {top + "/link/missing1", false, top + "/link/missing1"},
      {top + "/link/../link/x", true, top + "/real/x"},
      {top + "/dangling/child", true, top + "/nowhere/x/child"},
      {top + "/loop1/a", true, top + "/loop1/a"},
      {top + "/relative", true, top.substr(0, top.rfind('/')) + "/up"},
      {deep, true, deep},
      {odd, true, odd},
      {top + "/\xC3(", true, top + "/\xC3("},
  };
  for (const auto& [path, expand, want] : cases) {
    VNFileURL result = expand ? VN_URLByStandardizingPathAndFullyExpandSymlinks(VNURL(path), true)
                              : VN_URLByStandardizingPath(VNURL(path));
    EXPECT_EQ(result.path(), want) << path;
    EXPECT_EQ(VNFileURL::fromURLString(result.absoluteString())->path(), want) << path;
  }
  auto missingDir = *VNFileURL::fromURLString("file:///tmp/varnel-missing-item/a/");
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(missingDir, true).absoluteString().back(), '/');
  EXPECT_EQ(VN_URLByStandardizingPath(missingDir).absoluteString(), "file:///tmp/varnel-missing-item/a/");
  EXPECT_TRUE(VN_URLByStandardizingPath(VNFileURL()).empty());
}

// The "/private" rules need top-level items of our own, so they run in a
// child that has changed its root to a test folder.
TEST(URLStandardize, PrivateFormOfTopLevelLinks) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: changing the root needs root";
  VNTestDir dir;
  VNMakeFolders(dir / "private/var/db");
  VNMakeFolders(dir / "srv");
  ASSERT_EQ(::symlink("private/var", (dir / "var").c_str()), 0);
  ASSERT_EQ(::symlink("/private/var", (dir / "srv/var").c_str()), 0);
  EXPECT_EXIT(std::_Exit(privateFormFailures(dir.path())), testing::ExitedWithCode(0), "");
}

// One separator between the parts; ".." is applied like any component and
// may climb out of the receiver.
TEST(URLAppendRelative, JoinsWithOneSeparator) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"/srv/Target", "/Library/", "file:///srv/Target/Library/"},
      {"/srv/Target/", "/Users/a", "file:///srv/Target/Users/a"},
      {"/", "/etc/x", "file:///etc/x"},
      {"/srv/Target", "/", "file:///srv/Target/"},
      {"/srv/Target", "/../../etc", "file:///etc"},
  };
  for (const auto& [receiver, relative, want] : cases)
    EXPECT_EQ(VN_URLByAppendingRelativePath(VNURL(receiver), VNURL(relative)).absoluteString(), want) << relative;
}

TEST(URLFileChecksum, DigestsWholeContentsThroughLinks) {
  VNTestDir dir;
  VNWriteTestFile(dir / "empty", "");
  std::string big;
  for (int i = 0; big.size() < 3 * 8192 + 17; ++i) big += std::to_string(i * 7919) + ",";
  VNWriteTestFile(dir / "big", big);
  ASSERT_EQ(::symlink("big", (dir / "link").c_str()), 0);
  EXPECT_EQ(VN_fileChecksum(VNURL(dir / "empty")), sha256(""));
  EXPECT_EQ(VN_fileChecksum(VNURL(dir / "big")), sha256(big));
  EXPECT_EQ(VN_fileChecksum(VNURL(dir / "link")), sha256(big));
  for (const std::string& bad : {dir / "missing", dir / "big/below-a-file", std::string("/etc\0/passwd", 12)})
    EXPECT_EQ(VN_fileChecksum(VNURL(bad)), std::nullopt) << bad;
  // A directory opens but cannot be read: the digest of no bytes.
  EXPECT_EQ(VN_fileChecksum(VNURL(dir.path())), sha256(""));
}
