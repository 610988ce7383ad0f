#include "foundation/VNFileURL.h"
#include "support/VNTest.h"

namespace {

using Strings = std::vector<std::string>;
VNFileURL url(const char* path) { return VNFileURL::fileURLWithPath(path); }
VNFileURL url(const char* path, bool isDirectory) { return VNFileURL::fileURLWithPath(path, isDirectory); }

TEST(VNFileURL, PathComponentsCountSeparatorsAtTheEnds) {
  const std::pair<const char*, size_t> cases[] = {
      {"/", 1}, {"Users", 1}, {"/Users", 2}, {"Users/", 2}, {"Users/a", 2},
      {"/Users/", 3}, {"/Users/a", 3}, {"", 0}, {"/Users//a", 3}, {"a//b//", 3}};
  for (auto [path, count] : cases) EXPECT_EQ(VNPathComponents(path).size(), count) << path;
  EXPECT_EQ(VNPathComponents("/Users/a/"), (Strings{"/", "Users", "a", "/"}));
  EXPECT_EQ(VNPathComponents("//"), (Strings{"/", "/"}));
  EXPECT_EQ(url("/Users/a/").pathComponents(), (Strings{"/", "Users", "a"})) << "a URL drops the trailing separator";
}

// The directory marker comes from a trailing separator or the caller (the
// root is always a folder); repeated separators collapse; a relative path
// resolves against the working folder, or to nothing when that is gone.
TEST(VNFileURL, DirectoryMarkerAndResolution) {
  const std::tuple<VNFileURL, const char*, bool, const char*> cases[] = {
      {url("/var/tmp/"), "/var/tmp", true, "file:///var/tmp/"},
      {url("/var/tmp"), "/var/tmp", false, "file:///var/tmp"},
      {url("/var/tmp", true), "/var/tmp", true, "file:///var/tmp/"},
      {url("/", false), "/", true, "file:///"},
      {url("//a///b//"), "/a/b", true, "file:///a/b/"},
  };
  for (const auto& [u, path, isDirectory, text] : cases) {
    EXPECT_EQ(u.path(), path);
    EXPECT_EQ(u.hasDirectoryPath(), isDirectory) << text;
    EXPECT_EQ(u.absoluteString(), text);
  }
  EXPECT_NE(url("/var/tmp/"), url("/var/tmp"));
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(url("some/file").path(), std::string(cwd == std::string("/") ? "" : cwd) + "/some/file");
  EXPECT_TRUE(url("").empty());
  EXPECT_EQ(url("").absoluteString(), "");
  EXPECT_EXIT(
      {
        char folder[] = "/tmp/varnel-gone.XXXXXX";
        bool moved = ::mkdtemp(folder) && ::chdir(folder) == 0 && ::rmdir(folder) == 0;
        ::_exit(moved && url(".").empty() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(VNFileURL, URLStringsEscapeAndParseBack) {
  for (const char* path : {"/a b/c", "/100%/x", "/Grüße/日本", "/q?r#s", "/tab\there", "/semi;colon=eq&amp", "/~user/(x)"}) {
    for (bool isDirectory : {false, true}) {
      std::string text = url(path, isDirectory).absoluteString();
      EXPECT_EQ(text.find(' '), std::string::npos) << text;
      auto back = VNFileURL::fromURLString(text);
      ASSERT_TRUE(back) << text;
      EXPECT_EQ(*back, url(path, isDirectory)) << text;
    }
  }
  EXPECT_EQ(url("/a b/100%/é").absoluteString(), "file:///a%20b/100%25/%C3%A9");
  auto localhost = VNFileURL::fromURLString("file://localhost/etc/x%2dy/");
  ASSERT_TRUE(localhost);
  EXPECT_EQ(localhost->path(), "/etc/x-y");
  EXPECT_TRUE(localhost->hasDirectoryPath());
  for (const char* bad : {"", "/etc/passwd", "file:", "file://", "file:/etc", "http://host/etc", "file://host/etc",
                          "file://localhost", "file:///a%2", "file:///a%", "file:///a%zz", "file:///a%00b", "file:///a%G0"})
    EXPECT_FALSE(VNFileURL::fromURLString(bad)) << bad;
}

TEST(VNFileURL, NameAndExtensionAndNeighbours) {
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      // path, last component, extension, parent
      {"/Apps/Tool.app/Contents/Info.plist", "Info.plist", "plist", "/Apps/Tool.app/Contents"},
      {"/a/archive.tar.gz", "archive.tar.gz", "gz", "/a"},
      {"/a/.hidden", ".hidden", "", "/a"},
      {"/a/trailing.", "trailing.", "", "/a"},
      {"/a.d/file", "file", "", "/a.d"},
      {"/top", "top", "", "/"},
      {"/", "/", "", "/"},
  };
  for (const auto& [path, name, extension, parent] : cases) {
    EXPECT_EQ(url(path).lastPathComponent(), name);
    EXPECT_EQ(url(path).pathExtension(), extension) << path;
    EXPECT_EQ(url(path).URLByDeletingLastPathComponent().path(), parent);
    EXPECT_TRUE(url(path).URLByDeletingLastPathComponent().hasDirectoryPath()) << path;
  }
  auto contents = url("/Apps/Contents");
  EXPECT_EQ(url("/").URLByAppendingPathComponent("Users").path(), "/Users");
  EXPECT_EQ(contents.URLByAppendingPathComponent("Resources/").absoluteString(), "file:///Apps/Contents/Resources/");
  EXPECT_EQ(contents.URLByAppendingPathComponent("/x//y").path(), "/Apps/Contents/x/y");
  EXPECT_TRUE(VNFileURL().URLByAppendingPathComponent("x").empty());
}

}  // namespace
