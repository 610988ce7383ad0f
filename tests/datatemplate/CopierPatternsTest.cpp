// Symlink-pattern manifest reading, path matching and link texts.
#include "CopierFakes.h"
#include "datatemplate/internal/VNSymlinkPatterns.h"
#include "support/VNTest.h"

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

// A line ending in "/" is a folder pattern, without that one slash; only the
// newline goes, and a NUL ends the pattern; "#" starts a comment only at the
// start; lines of only "/" and "." name nothing.
TEST(CopierPatternsTest, ManifestLinesBecomeFileOrDirectoryPatterns) {
  const std::tuple<std::string, Patterns, Patterns> cases[] = {
      {"# comment/\n\nLibrary/Caches/\nLibrary/Caches\n./\n/\n//./.\n.\n/Users/*/Desktop/**/\n spaced \r\nlast/**",
       {"Library/Caches", " spaced \r", "last/**"}, {"Library/Caches", "/Users/*/Desktop/**"}},
      {"a//\n..\n./a\n#\n  #x\nb\n\n\n", {"..", "./a", "  #x", "b"}, {"a/"}},
      {std::string("abc\0def/\nxy/\0z\n\0only\n", 22), {"abc"}, {"xy"}},
      // Lines split into pieces of 1024 bytes; a comment comments out only its first piece.
      {std::string(1024, 'y') + "\n#c\n", {std::string(1024, 'y')}, {}},
      {"#" + std::string(1023, 'c') + "tail\n", {"tail"}, {}},
      {std::string(1023, 'x') + "/" + std::string(1476, 'x') + "\nnext\n",
       {std::string(1024, 'x'), std::string(452, 'x'), "next"}, {std::string(1023, 'x')}},
  };
  for (const auto& [manifest, files, folders] : cases) {
    auto whole = readAll(manifest);
    EXPECT_EQ(whole.filePatterns(), files) << manifest.substr(0, 40);
    EXPECT_EQ(whole.directoryPatterns(), folders) << manifest.substr(0, 40);
    for (std::size_t cut = 0; cut <= manifest.size(); cut += 7) {
      VNSymlinkPatternReader reader;
      reader.feed(std::string_view(manifest).substr(0, cut));
      reader.feed(std::string_view(manifest).substr(cut));
      reader.finish();
      ASSERT_EQ(reader.filePatterns(), files) << "fed in two pieces at " << cut;
      ASSERT_EQ(reader.directoryPatterns(), folders) << "fed in two pieces at " << cut;
    }
  }
}

TEST(CopierPatternsTest, StrippingRemovesLeadingSlashesAndDotSlashPairs) {
  const std::pair<const char*, const char*> cases[] = {{"./a/b", "a/b"}, {"//.//./a", "a"}, {".", ""}, {"./.", ""},
                                                       {".a", ".a"}, {"../a", "../a"}, {"./..", ".."}, {"a/./b", "a/./b"}};
  for (auto [path, stripped] : cases) EXPECT_EQ(VNStripTemplateRelativePath(path), stripped) << path;
}

TEST(CopierPatternsTest, MatchingTable) {
  const std::tuple<const char*, bool, const char*, bool, bool> cases[] = {
      // pattern, is a folder pattern, path, is a folder, expected
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
  for (const auto& [pattern, folderPattern, path, isDirectory, expected] : cases) {
    TestSystem system;
    system.writeManifest(std::string(pattern) + (folderPattern ? "/\n" : "\n"));
    EXPECT_EQ(system.copier->shouldSymlinkPath(path, isDirectory), expected)
        << "pattern '" << pattern << (folderPattern ? "/" : "") << "' path '" << path << "' directory " << isDirectory;
  }
}

// The indexed set answers as fnmatch over the whole list does, for each
// pattern alone and for all of them together.
TEST(CopierPatternsTest, PatternSetAnswersAsTheListDoes) {
  const Patterns patterns = {"Library/Caches/**", "a/b", "/**", "x/**/y/**", "lit/\\**", "q?/**", "top", "deep/er/**", "star*"};
  VNSymlinkPatternSet all(patterns);
  for (const char* path : {"Library/Caches", "Library/Caches/", "Library/Caches/a", "Library/Caches//a/b",
                           "Library/CachesX/a", "a/b", "a/b/c", "a", "", "/x", "x/1/y/2/3", "lit/**", "lit/*/z", "q1/z",
                           "qq/z/w", "top", "top/x", "deep/er", "deep/er/x", "star", "starry/x"}) {
    EXPECT_EQ(all.matches(path), VNMatchesSymlinkPattern(patterns, path)) << path;
    for (const std::string& pattern : patterns)
      EXPECT_EQ(VNSymlinkPatternSet({pattern}).matches(path), VNMatchesSymlinkPattern({pattern}, path))
          << pattern << " " << path;
  }
}

// The first question loads the manifest once and logs both lists; a later
// change is not read until an explicit load, which replaces both lists.
TEST(CopierPatternsTest, FirstLoadReadsTheManifestOnceAndLogsBothLists) {
  TestSystem system;
  system.writeManifest("Library/Caches/\nprivate/var/db/*\n");
  EXPECT_FALSE(system.copier->_shouldSymlinkPath("private/var/db/x", false)) << "not loaded yet";
  EXPECT_EQ(system.copier->symlinkedFilePatterns(), nullptr);
  EXPECT_TRUE(system.copier->shouldSymlinkPath("private/var/db/x", false));
  EXPECT_TRUE(system.copier->_shouldSymlinkPath("Library/Caches", true));
  EXPECT_EQ(system.messages, (Patterns{"loaded symlinked file patterns: (\n    \"private/var/db/*\"\n)",
                                       "loaded symlinked directory patterns: (\n    Library/Caches\n)"}));
  system.writeManifest("other\n");
  EXPECT_FALSE(system.copier->shouldSymlinkPath("other", false));
  EXPECT_EQ(system.messages.size(), 2u);
  system.copier->loadSymlinkedPatterns();
  EXPECT_TRUE(system.copier->shouldSymlinkPath("other", false));
  EXPECT_EQ(*system.copier->symlinkedDirectoryPatterns(), Patterns{});
}

// A missing manifest gives empty lists once; what is not a small regular
// file (a FIFO would block, a device could be endless) counts as missing.
TEST(CopierPatternsTest, ManifestThatIsNoSmallRegularFileCountsAsMissing) {
  const std::tuple<const char*, std::function<void(const std::string&)>, const char*> cases[] = {
      {"absent", [](const std::string&) {}, nullptr},
      {"folder", [](const std::string& path) { ::mkdir(path.c_str(), 0755); }, " is not a regular file"},
      {"FIFO", [](const std::string& path) { ::mkfifo(path.c_str(), 0644); }, " is not a regular file"},
      {"endless device", [](const std::string& path) { ::symlink("/dev/zero", path.c_str()); }, " is not a regular file"},
      {"too large", [](const std::string& path) {
         VNWriteTestFile(path, "a\n");
         ::truncate(path.c_str(), static_cast<off_t>(kMaxManifestBytes) + 1);
       }, " is larger than 8388608 bytes"},
  };
  for (const auto& [what, make, reason] : cases) {
    TestSystem system;
    std::string path = system.root / "System/Library/Templates/Data.symlink-patterns";
    VNMakeFolders(system.root / "System/Library/Templates");
    make(path);
    EXPECT_FALSE(system.copier->shouldSymlinkPath("anything", false));
    EXPECT_FALSE(system.copier->shouldSymlinkPath("anything", true));
    ASSERT_NE(system.copier->symlinkedFilePatterns(), nullptr) << what;
    EXPECT_TRUE(system.copier->symlinkedFilePatterns()->empty()) << what;
    EXPECT_TRUE(system.copier->symlinkedDirectoryPatterns()->empty()) << what;
    Patterns expected = {"symlinked patterns manifest not present"};
    if (reason) expected.insert(expected.begin(), "ignoring symlinked patterns manifest: " + path + reason);
    EXPECT_EQ(system.messages, expected) << what;
  }
}

// The link leads up to the volume root and into the template; a text too
// long is cut at the buffer, mid-name if need be, never written past it.
TEST(CopierPatternsTest, LinkTextLeadsUpToTheVolumeRootAndIntoTheTemplate) {
  EXPECT_EQ(linkFor("a/b/c", false), "../../System/Library/Templates/Data/a/b/c");
  EXPECT_EQ(linkFor("./a/d", true), "../System/Library/Templates/Data/a/d/");
  EXPECT_EQ(linkFor("//a", false), "System/Library/Templates/Data/a");
  EXPECT_EQ(linkFor(".", true), "System/Library/Templates/Data//");
  // 400 slashes need 1200 bytes of "../": the buffer holds 341 of them.
  std::string deep;
  for (int i = 0; i < 400; ++i) deep += "d/";
  std::string ups;
  for (int i = 0; i < 341; ++i) ups += "../";
  EXPECT_EQ(linkFor((deep + "f").c_str(), false), ups);
  std::string wide = linkFor(("x/" + std::string(2000, 'n')).c_str(), true);
  EXPECT_EQ(wide.size(), VNUDTLinkBufferSize - 1);
  EXPECT_EQ(wide.substr(0, 35), "../System/Library/Templates/Data/x/");
  EXPECT_EQ(wide.back(), 'n');
  char buffer[VNUDTLinkBufferSize + 16];
  std::memset(buffer, 0x5A, sizeof buffer);
  dataTemplateLinkForPath(("a" + std::string(3000, '/') + "b").c_str(), true, buffer);
  EXPECT_EQ(buffer[VNUDTLinkBufferSize - 1], '\0');
  for (std::size_t i = VNUDTLinkBufferSize; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], 0x5A) << i;
}

}  // namespace
