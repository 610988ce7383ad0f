// Symlink-pattern manifest reading, path matching and link texts.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "datatemplate/internal/VNSymlinkPatterns.h"
#include "CopierFakes.h"

namespace {

using Patterns = std::vector<std::string>;

VNSymlinkPatternReader readAll(std::string_view manifest) {
  VNSymlinkPatternReader reader;
  reader.feed(manifest);
  reader.finish();
  return reader;
}

std::string linkFor(const char* path, bool isDirectory) {
  char buffer[VNUDTLinkBufferSize] = {};
  dataTemplateLinkForPath(path, isDirectory, buffer);
  return buffer;
}

// A system with `manifest` as its symlink-pattern manifest, or none.
std::unique_ptr<TestSystem> systemWithManifest(const std::string* manifest) {
  auto system = std::make_unique<TestSystem>();
  makeFolders(system->root.path(), "System/Library/Templates");
  if (manifest) system->writeManifest(*manifest);
  return system;
}

TEST(CopierPatternsTest, ManifestLinesBecomeFileOrDirectoryPatterns) {
  auto reader = readAll(
      "# comment/\n"
      "\n"
      "Library/Caches/\n"
      "Library/Caches\n"
      "./\n"
      "/\n"
      "//./.\n"
      ".\n"
      "/Users/*/Desktop/**/\n"
      " spaced \r\n"
      "last/**");
  EXPECT_EQ(reader.filePatterns(), (Patterns{"Library/Caches", " spaced \r", "last/**"}));
  EXPECT_EQ(reader.directoryPatterns(), (Patterns{"Library/Caches", "/Users/*/Desktop/**"}));
}

TEST(CopierPatternsTest, ManifestKeepsEverythingButOneNewlineAndOneSlash) {
  auto reader = readAll("a//\n..\n./a\n#\n  #x\nb\n\n\n");
  EXPECT_EQ(reader.directoryPatterns(), (Patterns{"a/"}));
  EXPECT_EQ(reader.filePatterns(), (Patterns{"..", "./a", "  #x", "b"}));
}

TEST(CopierPatternsTest, LongLinesSplitIntoLinesOf1024Bytes) {
  std::string line(2500, 'x');
  line[1023] = '/';  // the end of the first piece: a directory pattern
  auto reader = readAll(line + "\nnext\n");
  ASSERT_EQ(reader.directoryPatterns().size(), 1u);
  EXPECT_EQ(reader.directoryPatterns()[0], std::string(1023, 'x'));
  // The rest: 1024 bytes, then 452 bytes and the newline.
  ASSERT_EQ(reader.filePatterns().size(), 3u);
  EXPECT_EQ(reader.filePatterns()[0].size(), 1024u);
  EXPECT_EQ(reader.filePatterns()[1].size(), 452u);
  EXPECT_EQ(reader.filePatterns()[2], "next");

  // A line of exactly 1024 bytes with its newline as the next piece.
  auto exact = readAll(std::string(1024, 'y') + "\n#c\n");
  EXPECT_EQ(exact.filePatterns(), (Patterns{std::string(1024, 'y')}));
  // A comment longer than 1024 bytes comments out only its first piece.
  auto comment = readAll("#" + std::string(1023, 'c') + "tail\n");
  EXPECT_EQ(comment.filePatterns(), (Patterns{"tail"}));
}

TEST(CopierPatternsTest, FeedingInPiecesReadsTheSameAsAtOnce) {
  std::string manifest = "a/\n#c\n" + std::string(1500, 'q') + "\nb\r\nc/**/\nd";
  auto whole = readAll(manifest);
  for (std::size_t cut = 0; cut <= manifest.size(); cut += 7) {
    VNSymlinkPatternReader reader;
    reader.feed(std::string_view(manifest).substr(0, cut));
    reader.feed(std::string_view(manifest).substr(cut));
    reader.finish();
    EXPECT_EQ(reader.filePatterns(), whole.filePatterns()) << cut;
    EXPECT_EQ(reader.directoryPatterns(), whole.directoryPatterns()) << cut;
  }
}

TEST(CopierPatternsTest, NulBytesEndThePattern) {
  auto reader = readAll(std::string("abc\0def/\nxy/\0z\n\0only\n", 22));
  EXPECT_EQ(reader.filePatterns(), (Patterns{"abc"}));
  EXPECT_EQ(reader.directoryPatterns(), (Patterns{"xy"}));
}

TEST(CopierPatternsTest, StrippingRemovesLeadingSlashesAndDotSlashPairs) {
  EXPECT_EQ(VNStripTemplateRelativePath("./a/b"), "a/b");
  EXPECT_EQ(VNStripTemplateRelativePath("//.//./a"), "a");
  EXPECT_EQ(VNStripTemplateRelativePath("."), "");
  EXPECT_EQ(VNStripTemplateRelativePath("./."), "");
  EXPECT_EQ(VNStripTemplateRelativePath(".a"), ".a");
  EXPECT_EQ(VNStripTemplateRelativePath("../a"), "../a");
  EXPECT_EQ(VNStripTemplateRelativePath("./.."), "..");
  EXPECT_EQ(VNStripTemplateRelativePath("a/./b"), "a/./b");
}

struct MatchCase {
  const char* pattern;
  bool isDirectoryPattern;
  const char* path;
  bool isDirectory;
  bool expected;
};

TEST(CopierPatternsTest, MatchingTable) {
  const MatchCase cases[] = {
      // "/**" selects below a folder at every depth, never the folder itself.
      {"Library/Caches/**", true, "Library/Caches/a", true, true},
      {"Library/Caches/**", true, "Library/Caches/a/b/c", true, true},
      {"Library/Caches/**", true, "Library/Caches", true, false},
      {"Library/Caches/**", true, "Library/CachesX/a", true, false},
      {"Library/Caches/**", false, "Library/Caches/a/b.txt", false, true},
      // A single star is one level only.
      {"Library/*", false, "Library/a", false, true},
      {"Library/*", false, "Library/a/b", false, false},
      {"Library/*", false, "Library", false, false},
      // Leading "/" or "./" in a path is stripped; in a pattern it matches nothing.
      {"Library/a", false, "./Library/a", false, true},
      {"Library/a", false, "/Library/a", false, true},
      {"Library/a", false, "//./Library/a", false, true},
      {"/Library/a", false, "/Library/a", false, false},
      {"./Library/a", false, "./Library/a", false, false},
      // The kinds never cross.
      {"Library/a", true, "Library/a", false, false},
      {"Library/a", false, "Library/a", true, false},
      // Case matters, a wildcard takes a leading dot, a backslash escapes.
      {"library/a", false, "Library/a", false, false},
      {"Library/*", false, "Library/.hidden", false, true},
      {"Library/\\*", false, "Library/x", false, false},
      {"Library/\\*", false, "Library/*", false, true},
      // A wildcard never takes a slash; "**" without FNM_LEADING_DIR is one level.
      {"a*b", false, "a/b", false, false},
      {"a/**/c", false, "a/x/y/c", false, false},
      {"a/**/c", false, "a/x/c", false, true},
  };
  for (const MatchCase& c : cases) {
    std::string manifest = std::string(c.pattern) + (c.isDirectoryPattern ? "/\n" : "\n");
    auto system = systemWithManifest(&manifest);
    EXPECT_EQ(system->copier->shouldSymlinkPath(c.path, c.isDirectory), c.expected)
        << "pattern '" << c.pattern << (c.isDirectoryPattern ? "/" : "") << "' path '" << c.path
        << "' directory " << c.isDirectory;
  }
}

TEST(CopierPatternsTest, FirstLoadReadsTheManifestOnceAndLogsBothLists) {
  std::string manifest = "Library/Caches/\nprivate/var/db/*\n";
  auto system = systemWithManifest(&manifest);
  EXPECT_FALSE(system->copier->_shouldSymlinkPath("private/var/db/x", false));  // not loaded yet
  EXPECT_EQ(system->copier->symlinkedFilePatterns(), nullptr);
  EXPECT_TRUE(system->copier->shouldSymlinkPath("private/var/db/x", false));
  EXPECT_TRUE(system->copier->_shouldSymlinkPath("Library/Caches", true));
  EXPECT_EQ(system->messages,
            (std::vector<std::string>{"loaded symlinked file patterns: (\n    \"private/var/db/*\"\n)",
                                      "loaded symlinked directory patterns: (\n    Library/Caches\n)"}));
  // The manifest is not read again, even when it changes.
  VNWriteTestFile(system->root / "System/Library/Templates/Data.symlink-patterns", "other\n");
  EXPECT_FALSE(system->copier->shouldSymlinkPath("other", false));
  EXPECT_EQ(system->messages.size(), 2u);
  // An explicit load replaces both lists.
  system->copier->loadSymlinkedPatterns();
  EXPECT_TRUE(system->copier->shouldSymlinkPath("other", false));
  EXPECT_EQ(*system->copier->symlinkedDirectoryPatterns(), Patterns{});
}

TEST(CopierPatternsTest, MissingManifestGivesEmptyListsOnce) {
  auto system = systemWithManifest(nullptr);
  EXPECT_FALSE(system->copier->shouldSymlinkPath("anything", false));
  EXPECT_FALSE(system->copier->shouldSymlinkPath("anything", true));
  ASSERT_NE(system->copier->symlinkedFilePatterns(), nullptr);
  ASSERT_NE(system->copier->symlinkedDirectoryPatterns(), nullptr);
  EXPECT_TRUE(system->copier->symlinkedFilePatterns()->empty());
  EXPECT_TRUE(system->copier->symlinkedDirectoryPatterns()->empty());
  EXPECT_EQ(system->messages, (std::vector<std::string>{"symlinked patterns manifest not present"}));
}

// What is not a regular file is refused before it is read: a FIFO would
// block the copier forever, a device could be endless. So is a manifest
// larger than the cap.
TEST(CopierPatternsTest, ManifestThatIsNoSmallRegularFileCountsAsMissing) {
  struct Case {
    const char* what;
    std::function<void(const std::string& path)> make;
    const char* reason;
  };
  const Case cases[] = {
      {"folder", [](const std::string& path) { ::mkdir(path.c_str(), 0755); }, " is not a regular file"},
      {"FIFO", [](const std::string& path) { ::mkfifo(path.c_str(), 0644); }, " is not a regular file"},
      {"endless device", [](const std::string& path) { ::symlink("/dev/zero", path.c_str()); },
       " is not a regular file"},
      {"too large", [](const std::string& path) {
         VNWriteTestFile(path, "a\n");
         ::truncate(path.c_str(), static_cast<off_t>(kMaxManifestBytes) + 1);
       }, " is larger than 8388608 bytes"},
  };
  for (const Case& c : cases) {
    auto system = systemWithManifest(nullptr);
    std::string path = system->root / "System/Library/Templates/Data.symlink-patterns";
    c.make(path);
    system->copier->loadSymlinkedPatterns();
    EXPECT_TRUE(system->copier->symlinkedFilePatterns()->empty()) << c.what;
    EXPECT_EQ(system->messages, (std::vector<std::string>{"ignoring symlinked patterns manifest: " + path + c.reason,
                                                          "symlinked patterns manifest not present"}))
        << c.what;
  }
}

// The indexed set answers as fnmatch over the whole list does, for each
// pattern alone and for all of them together.
TEST(CopierPatternsTest, PatternSetAnswersAsTheListDoes) {
  const std::vector<std::string> patterns = {
      "Library/Caches/**", "a/b", "/**", "x/**/y/**", "lit/\\**", "q?/**", "top", "deep/er/**", "star*"};
  const char* paths[] = {"Library/Caches", "Library/Caches/", "Library/Caches/a", "Library/Caches//a/b",
                         "Library/CachesX/a", "a/b", "a/b/c", "a", "", "/x", "x/1/y/2/3", "lit/**", "lit/*/z",
                         "q1/z", "qq/z/w", "top", "top/x", "deep/er", "deep/er/x", "star", "starry/x"};
  VNSymlinkPatternSet all(patterns);
  for (const char* path : paths) {
    EXPECT_EQ(all.matches(path), VNMatchesSymlinkPattern(patterns, path)) << path;
    for (const std::string& pattern : patterns)
      EXPECT_EQ(VNSymlinkPatternSet({pattern}).matches(path), VNMatchesSymlinkPattern({pattern}, path))
          << pattern << " " << path;
  }
}

TEST(CopierPatternsTest, LinkTextLeadsUpToTheVolumeRootAndIntoTheTemplate) {
  EXPECT_EQ(linkFor("a/b/c", false), "../../System/Library/Templates/Data/a/b/c");
  EXPECT_EQ(linkFor("./a/d", true), "../System/Library/Templates/Data/a/d/");
  EXPECT_EQ(linkFor("//a", false), "System/Library/Templates/Data/a");
  EXPECT_EQ(linkFor(".", true), "System/Library/Templates/Data//");
}

TEST(CopierPatternsTest, LinkTextIsCutAtTheBuffer) {
  // 400 slashes need 1200 bytes of "../": the buffer holds 341 of them.
  std::string deep;
  for (int i = 0; i < 400; ++i) deep += "d/";
  deep += "f";
  std::string link = linkFor(deep.c_str(), false);
  EXPECT_EQ(link.size(), VNUDTLinkBufferSize - 1);
  std::string ups;
  for (int i = 0; i < 341; ++i) ups += "../";
  EXPECT_EQ(link, ups);

  // A long name after few slashes is cut in the middle of the name.
  std::string wide = "x/" + std::string(2000, 'n');
  link = linkFor(wide.c_str(), true);
  EXPECT_EQ(link.size(), VNUDTLinkBufferSize - 1);
  EXPECT_EQ(link.substr(0, 35), "../System/Library/Templates/Data/x/");
  EXPECT_EQ(link.back(), 'n');
}

TEST(CopierPatternsTest, LinkTextNeverWritesPastTheBuffer) {
  char buffer[VNUDTLinkBufferSize + 16];
  std::memset(buffer, 0x5A, sizeof buffer);
  std::string deep(3000, '/');
  deep = "a" + deep + "b";
  dataTemplateLinkForPath(deep.c_str(), true, buffer);
  EXPECT_EQ(buffer[VNUDTLinkBufferSize - 1], '\0');
  for (std::size_t i = VNUDTLinkBufferSize; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], 0x5A) << i;
}

}  // namespace
