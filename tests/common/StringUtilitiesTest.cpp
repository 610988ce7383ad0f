#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/VNStringUtilities.h"

using namespace VNUtilities;

namespace {

const std::string kPrecomposed = "caf\xC3\xA9";      // "café" with U+00E9
const std::string kDecomposed = "cafe\xCC\x81";      // "cafe" + U+0301
const std::string kInvalid = "ab\xC3";               // truncated sequence
const std::string kOverlong = "\xC0\xAF";            // overlong "/"
const std::string kSurrogate = "\xED\xA0\x80";       // U+D800 encoded in UTF-8
const std::string kGClef = "\xF0\x9D\x84\x9E";       // U+1D11E, two UTF-16 units

}  // namespace

TEST(StringCompare, PrefixIgnoresCompositionButNotCase) {
  EXPECT_TRUE(VN_hasPrefix(kPrecomposed + "/x", kDecomposed));
  EXPECT_TRUE(VN_hasPrefix(kDecomposed + "/x", kPrecomposed));
  EXPECT_FALSE(VN_hasPrefix("Caf\xC3\xA9", kPrecomposed));
  // A precomposed "é" is two units once decomposed: "cafe" is a prefix of it.
  EXPECT_TRUE(VN_hasPrefix(kPrecomposed, "cafe"));
  // Compatibility forms are not folded: the "ﬁ" ligature is no "fi".
  EXPECT_FALSE(VN_hasPrefix("\xEF\xAC\x81le", "fi"));
  EXPECT_TRUE(VN_hasPrefix("", ""));
  EXPECT_TRUE(VN_hasPrefix("/tmp", ""));
  EXPECT_FALSE(VN_hasPrefix("/tm", "/tmp"));
}

TEST(StringCompare, SuffixOfEmptyIsNeverFound) {
  EXPECT_FALSE(VN_hasSuffix("/tmp/", ""));
  EXPECT_FALSE(VN_hasSuffix("", ""));
  EXPECT_TRUE(VN_hasSuffix("/Users/" + kPrecomposed, kDecomposed));
  EXPECT_TRUE(VN_hasSuffix("/Users/" + kDecomposed, "\xC3\xA9"));
  EXPECT_FALSE(VN_hasSuffix("e", "/e"));
}

// Bytes outside UTF-8 compare as themselves, never as a character, while
// the valid runs around them are still compared decomposed.
TEST(StringCompare, BytesOutsideUTF8CompareAsBytes) {
  struct Case {
    std::string string, prefix;
    bool hasPrefix, hasSuffix;
    std::string removed;
  };
  const Case cases[] = {
      {"/Volumes/Data/\xFF", "/Volumes/Data", true, false, "/\xFF"},
      {"/Volumes/Data/\xFF", "/\xFF", false, true, "olumes/Data/\xFF"},
      {"\xFF", "\xFF", true, true, ""},
      {"\xFF", "\xFE", false, false, ""},
      {"\xFF" + kPrecomposed, "\xFF" + kDecomposed, true, true, ""},
      {kPrecomposed + "\xFF", kDecomposed, true, false, "\xFF"},
      {kInvalid + "/x", "ab", true, false, "\xC3/x"},
      {kInvalid, "ab\xC3\xA9", false, false, ""},
      {kOverlong, "/", false, false, "\xAF"},
      {kSurrogate, kSurrogate, true, true, ""},
      {"\xC3\x80", "\xC3", false, false, "\xCC\x80"},  // "À" is not its first byte
      {kGClef + "\xDC", kGClef, true, false, "\xDC"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.string) + " / " + testing::PrintToString(c.prefix));
    EXPECT_EQ(VN_hasPrefix(c.string, c.prefix), c.hasPrefix);
    EXPECT_EQ(VN_hasSuffix(c.string, c.prefix), c.hasSuffix);
    EXPECT_EQ(VN_stringByRemovingPrefix(c.string, c.prefix), c.removed);
  }
}

TEST(StringCompare, EmbeddedNulIsAnOrdinaryCharacter) {
  std::string withNul("a\0b", 3);
  EXPECT_TRUE(VN_hasPrefix(withNul, std::string("a\0", 2)));
  EXPECT_FALSE(VN_hasPrefix(withNul, "ab"));
  EXPECT_EQ(VN_stringByRemovingPrefix(withNul, "a"), std::string("\0b", 2));
}

TEST(StringRemovePrefix, CutsByDecomposedLength) {
  EXPECT_EQ(VN_stringByRemovingPrefix("/Volumes/Data/Users", "/Volumes/Data"), "/Users");
  // No prefix test: as many characters go as the argument has.
  EXPECT_EQ(VN_stringByRemovingPrefix("/srv/other/Users", "/Volumes/Da"), "Users");
  // The result stays decomposed, and lengths count decomposed units.
  EXPECT_EQ(VN_stringByRemovingPrefix(kPrecomposed + "s", "cafe"), "\xCC\x81s");
  EXPECT_EQ(VN_stringByRemovingPrefix(kPrecomposed + "/a", kDecomposed), "/a");
  EXPECT_EQ(VN_stringByRemovingPrefix("abc", "abc"), "");
  EXPECT_EQ(VN_stringByRemovingPrefix("ab", "abc"), "");
  EXPECT_EQ(VN_stringByRemovingPrefix("", ""), "");
}

TEST(StringRemovePrefix, NeverSplitsASurrogatePair) {
  // One unit of a two-unit character removed: the whole character goes.
  EXPECT_EQ(VN_stringByRemovingPrefix(kGClef + "x", "a"), "x");
  EXPECT_EQ(VN_stringByRemovingPrefix(kGClef + "x", "ab"), "x");
  EXPECT_EQ(VN_stringByRemovingPrefix("a" + kGClef, "a"), kGClef);
  EXPECT_EQ(VN_stringByRemovingPrefix(kGClef, kGClef), "");
}

TEST(StringTrailingSlash, AddsOnlyWhenMissing) {
  EXPECT_EQ(VN_stringWithTrailingSlash("/tmp"), "/tmp/");
  EXPECT_EQ(VN_stringWithTrailingSlash("/tmp/"), "/tmp/");
  EXPECT_EQ(VN_stringWithTrailingSlash("//"), "//");
  EXPECT_EQ(VN_stringWithTrailingSlash(""), "/");
}

TEST(StringContains, LiteralAndCaseSensitive) {
  EXPECT_TRUE(containsString("/System/Library", "m/Li"));
  EXPECT_FALSE(containsString("/System/Library", "system"));
  EXPECT_FALSE(containsString("/System", ""));
  EXPECT_FALSE(containsString("", ""));
  // Literal: no normalisation, no pattern characters.
  EXPECT_FALSE(containsString(kPrecomposed, kDecomposed));
  EXPECT_FALSE(containsString("a.c", "a?c"));
  EXPECT_TRUE(containsString(std::string("x\0y", 3), std::string("\0y", 2)));
}

TEST(StringRegEx, ExtendedPatternsUnanchored) {
  EXPECT_TRUE(containsRegEx("/System/Library", "^/System"));
  EXPECT_FALSE(containsRegEx("/System", "system"));
  EXPECT_TRUE(containsRegEx("/usr/lib/libx.so.1", "lib[a-z]+\\.so(\\.[0-9]+)?$"));
  EXPECT_TRUE(containsRegEx("anything", ""));
  EXPECT_TRUE(containsRegEx("line1\nline2", "1.line"));  // no newline handling
}

TEST(StringRegEx, BadPatternsAreFalse) {
  for (const char* pattern : {"(", "[a-", "a{2,1}", "*?\\"}) EXPECT_FALSE(containsRegEx("((((", pattern)) << pattern;
  EXPECT_FALSE(containsRegEx("abc", kInvalid + "("));
  // Invalid UTF-8 in the subject is searched as bytes, never past its end.
  EXPECT_TRUE(containsRegEx(kInvalid, "^ab"));
  EXPECT_FALSE(containsRegEx(kInvalid, "abc"));
}

TEST(StringRegEx, ConcurrentCallsAgree) {
  std::vector<std::thread> threads;
  std::vector<int> hits(8, 0);
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&hits, t] {
      for (int i = 0; i < 500; ++i)
        hits[t] += containsRegEx("/Library/Caches/" + std::to_string(i), "/Caches/[0-9]*5$");
    });
  for (auto& thread : threads) thread.join();
  for (int count : hits) EXPECT_EQ(count, 50);
}

TEST(PathRefersToFSRoot, CountsComponentsWithSeparators) {
  for (const char* yes : {"/", "Users", "/Users", "Users/", "/Users/", "//Users//", "a"})
    EXPECT_TRUE(VN_pathRefersToFSRoot(yes)) << yes;
  for (const char* no : {"/Users/a", "Users/a", "/Users/a/", "", "a/b/c", "/a/b/c/"})
    EXPECT_FALSE(VN_pathRefersToFSRoot(no)) << no;
  // ".." is a name like any other here: the test is textual.
  EXPECT_TRUE(VN_pathRefersToFSRoot("/.."));
  EXPECT_FALSE(VN_pathRefersToFSRoot("/Users/.."));
  EXPECT_TRUE(VN_pathRefersToFSRoot("/name\nwith newline/"));
  EXPECT_FALSE(VN_pathRefersToFSRoot("/" + std::string(5000, 'x') + "/y"));
  for (const char* yes : {"/\xFF", "\xFF/", "/\xFF/", "/Users\xC3", "\xFF"})
    EXPECT_TRUE(VN_pathRefersToFSRoot(yes)) << yes;
  EXPECT_FALSE(VN_pathRefersToFSRoot("/\xFF/a"));
}

TEST(Sha256Hash, KnownDigests) {
  EXPECT_EQ(VN_sha256Hash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(VN_sha256Hash("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  // Bytes are hashed as given: composition and NULs matter.
  EXPECT_NE(VN_sha256Hash(kPrecomposed), VN_sha256Hash(kDecomposed));
  EXPECT_NE(VN_sha256Hash(std::string("\0", 1)), VN_sha256Hash(""));
  EXPECT_EQ(VN_sha256Hash(kInvalid).size(), 64u);
}

TEST(StringWithFormat, TakesAtMostTenArguments) {
  EXPECT_EQ(VN_stringWithFormat("%@-%@", {"a", "b", "c"}), "a-b");
  VNValue::Array eleven;
  for (int i = 1; i <= 11; ++i) eleven.emplace_back("v" + std::to_string(i));
  EXPECT_EQ(VN_stringWithFormat("%@", eleven), "v1");
  // The eleventh placeholder finds nothing: the array's eleventh element is ignored.
  EXPECT_EQ(VN_stringWithFormat("%@ %@ %@ %@ %@ %@ %@ %@ %@ %@ %@", eleven),
            "v1 v2 v3 v4 v5 v6 v7 v8 v9 v10 (null)");
  EXPECT_EQ(VN_stringWithFormat("%@/%@", {"only"}), "only/(null)");
  EXPECT_EQ(VN_stringWithFormat("n=%@ %%", {VNValue(42)}), "n=42 %");
  EXPECT_EQ(VN_stringWithFormat("", {}), "");
}
