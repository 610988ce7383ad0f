#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/VNFileURL.h"

TEST(VNFileURL, PathComponentsCountSeparatorsAtTheEnds) {
  const std::pair<const char*, size_t> cases[] = {
      {"/", 1}, {"Users", 1}, {"/Users", 2}, {"Users/", 2}, {"Users/a", 2},
      {"/Users/", 3}, {"/Users/a", 3}, {"", 0}, {"/Users//a", 3}, {"a//b//", 3}};
  for (auto [path, count] : cases) EXPECT_EQ(VNPathComponents(path).size(), count) << path;
  EXPECT_EQ(VNPathComponents("/Users/a/"), (std::vector<std::string>{"/", "Users", "a", "/"}));
  EXPECT_EQ(VNPathComponents("//"), (std::vector<std::string>{"/", "/"}));
  EXPECT_EQ(VNFileURL::fileURLWithPath("/Users/a/").pathComponents(),
            (std::vector<std::string>{"/", "Users", "a"}))
      << "a URL keeps its path without the trailing separator";
}

TEST(VNFileURL, DirectoryMarkerFollowsTheTrailingSeparatorOrTheCaller) {
  auto dir = VNFileURL::fileURLWithPath("/var/tmp/");
  EXPECT_TRUE(dir.hasDirectoryPath());
  EXPECT_EQ(dir.path(), "/var/tmp");
  EXPECT_EQ(dir.absoluteString(), "file:///var/tmp/");
  auto file = VNFileURL::fileURLWithPath("/var/tmp");
  EXPECT_FALSE(file.hasDirectoryPath());
  EXPECT_EQ(file.absoluteString(), "file:///var/tmp");
  EXPECT_TRUE(VNFileURL::fileURLWithPath("/var/tmp", true).hasDirectoryPath());
  EXPECT_NE(dir, file);
  auto root = VNFileURL::fileURLWithPath("/", false);
  EXPECT_TRUE(root.hasDirectoryPath()) << "the root is always a folder";
  EXPECT_EQ(root.absoluteString(), "file:///");
  EXPECT_EQ(VNFileURL::fileURLWithPath("//a///b//").path(), "/a/b");
}

TEST(VNFileURL, RelativePathsResolveAgainstTheWorkingDirectory) {
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  auto url = VNFileURL::fileURLWithPath("some/file");
  EXPECT_EQ(url.path(), std::string(cwd == std::string("/") ? "" : cwd) + "/some/file");
  EXPECT_TRUE(VNFileURL::fileURLWithPath("").empty());
  EXPECT_EQ(VNFileURL::fileURLWithPath("").absoluteString(), "");
  // From a working folder that has been removed, a relative path resolves to
  // nothing, never to a guess such as "/".
  EXPECT_EXIT(
      {
        char folder[] = "/tmp/varnel-gone.XXXXXX";
        bool moved = ::mkdtemp(folder) && ::chdir(folder) == 0 && ::rmdir(folder) == 0;
        ::_exit(moved && VNFileURL::fileURLWithPath(".").empty() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(VNFileURL, URLStringsEscapeAndParseBack) {
  const char* paths[] = {"/a b/c", "/100%/x", "/Grüße/日本", "/q?r#s", "/tab\there",
                         "/semi;colon=eq&amp", "/~user/(x)"};
  for (const char* path : paths) {
    for (bool isDirectory : {false, true}) {
      auto url = VNFileURL::fileURLWithPath(path, isDirectory);
      std::string text = url.absoluteString();
      EXPECT_EQ(text.find(' '), std::string::npos) << text;
      auto back = VNFileURL::fromURLString(text);
      ASSERT_TRUE(back) << text;
      EXPECT_EQ(*back, url) << text;
    }
  }
  EXPECT_EQ(VNFileURL::fileURLWithPath("/a b/100%/é").absoluteString(),
            "file:///a%20b/100%25/%C3%A9");
  auto localhost = VNFileURL::fromURLString("file://localhost/etc/x%2dy/");
  ASSERT_TRUE(localhost);
  EXPECT_EQ(localhost->path(), "/etc/x-y");
  EXPECT_TRUE(localhost->hasDirectoryPath());
}

TEST(VNFileURL, FromURLStringRejectsWhatIsNoLocalFileURL) {
  const char* bad[] = {"",
                       "/etc/passwd",
                       "file:",
                       "file://",
                       "file:/etc",
                       "http://host/etc",
                       "file://host/etc",
                       "file://localhost",
                       "file:///a%2",
                       "file:///a%",
                       "file:///a%zz",
                       "file:///a%00b",
                       "file:///a%G0"};
  for (const char* text : bad) EXPECT_FALSE(VNFileURL::fromURLString(text)) << text;
}

TEST(VNFileURL, NameAndExtensionAndNeighbours) {
  auto url = VNFileURL::fileURLWithPath("/Apps/Tool.app/Contents/Info.plist");
  EXPECT_EQ(url.lastPathComponent(), "Info.plist");
  EXPECT_EQ(url.pathExtension(), "plist");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/a/archive.tar.gz").pathExtension(), "gz");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/a/.hidden").pathExtension(), "");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/a/trailing.").pathExtension(), "");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/a.d/file").pathExtension(), "");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/").lastPathComponent(), "/");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/").pathExtension(), "");

  auto parent = url.URLByDeletingLastPathComponent();
  EXPECT_EQ(parent.path(), "/Apps/Tool.app/Contents");
  EXPECT_TRUE(parent.hasDirectoryPath());
  EXPECT_EQ(VNFileURL::fileURLWithPath("/top").URLByDeletingLastPathComponent().path(), "/");
  EXPECT_EQ(VNFileURL::fileURLWithPath("/").URLByDeletingLastPathComponent().path(), "/");

  auto root = VNFileURL::fileURLWithPath("/");
  EXPECT_EQ(root.URLByAppendingPathComponent("Users").path(), "/Users");
  EXPECT_EQ(parent.URLByAppendingPathComponent("Resources/").absoluteString(),
            "file:///Apps/Tool.app/Contents/Resources/");
  EXPECT_EQ(parent.URLByAppendingPathComponent("/x//y").path(), "/Apps/Tool.app/Contents/x/y");
  EXPECT_TRUE(VNFileURL().URLByAppendingPathComponent("x").empty());
}
