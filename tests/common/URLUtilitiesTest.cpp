#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "common/VNURLUtilities.h"
#include "support/VNTestDir.h"

using namespace VNUtilities;

namespace {

std::string realPath(const std::string& path) {
  char* resolved = ::realpath(path.c_str(), nullptr);
  std::string out = resolved ? resolved : "";
  std::free(resolved);
  return out;
}

VNFileURL url(const std::string& path) { return VNFileURL::fileURLWithPath(path); }

VNValue::Data sha256(const std::string& bytes) {
  VNValue::Data digest(SHA256_DIGEST_LENGTH);
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
  return digest;
}

// Runs in a child: changes the root to `root` and counts the cases whose
// "/private" form is wrong.
int privateFormFailures(const std::string& root) {
  if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0) return 100;
  const struct {
    const char* path;
    bool expand;
    const char* want;
  } cases[] = {
      {"/var/db/x", false, "/private/var/db/x"}, {"/var/db/x", true, "/private/var/db/x"},
      {"/private/var/db", false, "/private/var/db"}, {"/var", false, "/private/var"},
      {"/", true, "/"},
      // Only a top-level link counts: "//srv" is no link.
      {"/srv/var/db", false, "/srv/var/db"}, {"/srv/var/db", true, "/private/var/db"},
  };
  int failures = 0;
  for (const auto& c : cases)
    failures += VN_URLByStandardizingPathAndFullyExpandSymlinks(url(c.path), c.expand).path() != c.want;
  return failures;
}

}  // namespace

TEST(URLStandardize, RemovesDotsAndKeepsTrailingSeparator) {
  EXPECT_EQ(VN_URLByStandardizingPath(url("/nonexistent/./a//b/../c")).absoluteString(),
            "file:///nonexistent/a/c");
  EXPECT_EQ(VN_URLByStandardizingPath(url("/../..")).path(), "/");
  EXPECT_EQ(VN_URLByStandardizingPath(url("/a/b/../../..")).path(), "/");
  // A receiver ending in "/" gives a result ending in "/", existing or not.
  auto missingDir = *VNFileURL::fromURLString("file:///tmp/varnel-missing-item/a/");
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(missingDir, true).absoluteString().back(),
            '/');
  EXPECT_EQ(VN_URLByStandardizingPath(missingDir).absoluteString(),
            "file:///tmp/varnel-missing-item/a/");
  EXPECT_TRUE(VN_URLByStandardizingPath(VNFileURL()).empty());
}

TEST(URLStandardize, ExpandsLinksAboveMissingComponents) {
  VNTestDir dir;
  std::string top = realPath(dir.path());
  ASSERT_EQ(::mkdir((top + "/real").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("real", (top + "/link").c_str()), 0);
  auto receiver = url(dir / "link/missing1/missing2");
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(receiver, true).path(),
            top + "/real/missing1/missing2");
  // Without expansion, the link stays.
  EXPECT_EQ(VN_URLByStandardizingPath(url(top + "/link/missing1")).path(), top + "/link/missing1");
  // ".." is applied to the written path before links are looked at.
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(url(top + "/link/../link/x"), true).path(),
            top + "/real/x");
}

TEST(URLStandardize, DanglingAndLoopingLinks) {
  VNTestDir dir;
  std::string top = realPath(dir.path());
  ASSERT_EQ(::symlink((top + "/nowhere/x").c_str(), (top + "/dangling").c_str()), 0);
  ASSERT_EQ(::symlink("loop2", (top + "/loop1").c_str()), 0);
  ASSERT_EQ(::symlink("loop1", (top + "/loop2").c_str()), 0);
  ASSERT_EQ(::symlink("../up", (top + "/relative").c_str()), 0);
  // A dangling link exists, so it is resolved to its target and the missing
  // child below it is kept.
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(url(top + "/dangling/child"), true).path(),
            top + "/nowhere/x/child");
  // A loop cannot be resolved: the path stays as written.
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(url(top + "/loop1/a"), true).path(),
            top + "/loop1/a");
  // ".." inside a link target climbs from the link's folder.
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(url(top + "/relative"), true).path(),
            top.substr(0, top.rfind('/')) + "/up");
}

TEST(URLStandardize, OverlongAndOddNamesNeverFail) {
  VNTestDir dir;
  std::string top = realPath(dir.path());
  std::string deep = top;
  for (int i = 0; i < 40; ++i) deep += "/" + std::string(200, 'd');
  ASSERT_GT(deep.size(), size_t{PATH_MAX});
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(url(deep), true).path(), deep);
  std::string odd = top + "/name\nwith newline/%20 and space";
  ASSERT_EQ(::mkdir((top + "/name\nwith newline").c_str(), 0755), 0);
  auto result = VN_URLByStandardizingPathAndFullyExpandSymlinks(url(odd), true);
  EXPECT_EQ(result.path(), odd);
  EXPECT_EQ(VNFileURL::fromURLString(result.absoluteString())->path(), odd);
  std::string invalid = top + "/\xC3(";
  EXPECT_EQ(VN_URLByStandardizingPathAndFullyExpandSymlinks(url(invalid), true).path(), invalid);
}

// The "/private" rules need top-level items of our own, so they run in a
// child that has changed its root to a test folder.
TEST(URLStandardize, PrivateFormOfTopLevelLinks) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: changing the root needs root";
  VNTestDir dir;
  ASSERT_EQ(::mkdir((dir / "private").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "private/var").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((dir / "private/var/db").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("private/var", (dir / "var").c_str()), 0);
  ASSERT_EQ(::mkdir((dir / "srv").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("/private/var", (dir / "srv/var").c_str()), 0);
  EXPECT_EXIT(std::_Exit(privateFormFailures(dir.path())), testing::ExitedWithCode(0), "");
}

TEST(URLAppendRelative, JoinsWithOneSeparator) {
  auto target = url("/srv/Target");
  auto joined = VN_URLByAppendingRelativePath(target, url("/Library/"));
  EXPECT_EQ(joined.absoluteString(), "file:///srv/Target/Library/");
  EXPECT_EQ(VN_URLByAppendingRelativePath(url("/srv/Target/"), url("/Users/a")).absoluteString(),
            "file:///srv/Target/Users/a");
  EXPECT_EQ(VN_URLByAppendingRelativePath(url("/"), url("/etc/x")).path(), "/etc/x");
  EXPECT_EQ(VN_URLByAppendingRelativePath(target, url("/")).absoluteString(), "file:///srv/Target/");
  // ".." is applied like any component and may climb out of the receiver.
  EXPECT_EQ(VN_URLByAppendingRelativePath(target, url("/../../etc")).path(), "/etc");
}

TEST(URLFileChecksum, DigestsWholeContents) {
  VNTestDir dir;
  VNWriteTestFile(dir / "empty", "");
  EXPECT_EQ(VN_fileChecksum(url(dir / "empty")), sha256(""));
  std::string big;
  for (int i = 0; big.size() < 3 * 8192 + 17; ++i) big += std::to_string(i * 7919) + ",";
  VNWriteTestFile(dir / "big", big);
  EXPECT_EQ(VN_fileChecksum(url(dir / "big")), sha256(big));
  ASSERT_EQ(::symlink("big", (dir / "link").c_str()), 0);
  EXPECT_EQ(VN_fileChecksum(url(dir / "link")), sha256(big));
  EXPECT_EQ(VN_fileChecksum(url(dir / "missing")), std::nullopt);
  EXPECT_EQ(VN_fileChecksum(url(dir / "big/below-a-file")), std::nullopt);
  EXPECT_EQ(VN_fileChecksum(url(std::string("/etc\0/passwd", 12))), std::nullopt);
  // A directory opens but cannot be read: the digest of no bytes.
  EXPECT_EQ(VN_fileChecksum(url(dir.path())), sha256(""));
}

TEST(URLRefersToFSRoot, UsesThePathWithoutTrailingSeparator) {
  EXPECT_TRUE(VN_pathRefersToFSRoot(url("/")));
  EXPECT_TRUE(VN_pathRefersToFSRoot(url("/Users/")));
  EXPECT_FALSE(VN_pathRefersToFSRoot(url("/Users/a/")));
  EXPECT_TRUE(VN_pathRefersToFSRoot(url("/\xFF/")));
  EXPECT_TRUE(VN_pathRefersToFSRoot(url("/Users\xC3")));
}
