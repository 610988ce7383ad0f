#include "common/VNStringUtilities.h"
#include "common/VNURLUtilities.h"
#include "support/VNTest.h"

using namespace VNUtilities;

namespace {

const std::string kPrecomposed = "caf\xC3\xA9";  // "café" with U+00E9
const std::string kDecomposed = "cafe\xCC\x81";  // "cafe" + U+0301
const std::string kInvalid = "ab\xC3";           // truncated sequence
const std::string kGClef = "\xF0\x9D\x84\x9E";   // U+1D11E, two UTF-16 units
const std::string kNul("a\0b", 3);

}  // namespace

// Valid UTF-8 compares by canonical decomposition (not case, not
// compatibility forms); other bytes compare as themselves. Removal cuts as
// many decomposed UTF-16 units as the argument has, never half a pair.
TEST(StringCompare, PrefixSuffixAndRemoval) {
  struct Case {
    std::string string, affix;
    bool hasPrefix, hasSuffix;
    std::string removed;
  };
  const Case cases[] = {
      {kPrecomposed + "/x", kDecomposed, true, false, "/x"},
      {kDecomposed + "/x", kPrecomposed, true, false, "/x"},
      {"Caf\xC3\xA9", kPrecomposed, false, false, ""},
      {kPrecomposed + "s", "cafe", true, false, "\xCC\x81s"},
      {"\xEF\xAC\x81le", "fi", false, false, "e"},  // the "ﬁ" ligature is no "fi"
      {"", "", true, false, ""},
      {"/tmp/", "", true, false, "/tmp/"},
      {"/tm", "/tmp", false, false, ""},
      {"abc", "abc", true, true, ""},
      {"e", "/e", false, false, ""},
      {"/Users/" + kPrecomposed, kDecomposed, false, true, "s/" + kDecomposed},
      {"/Users/" + kDecomposed, "\xC3\xA9", false, true, "sers/" + kDecomposed},
      {"/Volumes/Data/Users", "/Volumes/Data", true, false, "/Users"},
      {"/srv/other/Users", "/Volumes/Da", false, false, "Users"},
      {kNul, std::string("a\0", 2), true, false, "b"},
      {kNul, "a", true, false, std::string("\0b", 2)},
      {kNul, "ab", false, false, "b"},
      {kGClef + "x", "a", false, false, "x"},
      {kGClef + "x", "ab", false, false, "x"},
      {"a" + kGClef, "a", true, false, kGClef},
      {kGClef, kGClef, true, true, ""},
      {"/Volumes/Data/\xFF", "/Volumes/Data", true, false, "/\xFF"},
      {"/Volumes/Data/\xFF", "/\xFF", false, true, "olumes/Data/\xFF"},
      {"\xFF", "\xFF", true, true, ""},
      {"\xFF", "\xFE", false, false, ""},
      {"\xFF" + kPrecomposed, "\xFF" + kDecomposed, true, true, ""},
      {kPrecomposed + "\xFF", kDecomposed, true, false, "\xFF"},
      {kInvalid + "/x", "ab", true, false, "\xC3/x"},
      {kInvalid, "ab\xC3\xA9", false, false, ""},
      {"\xC0\xAF", "/", false, false, "\xAF"},  // an overlong "/" is no "/"
      {"\xED\xA0\x80", "\xED\xA0\x80", true, true, ""},
      {"\xC3\x80", "\xC3", false, false, "\xCC\x80"},  // "À" is not its first byte
      {kGClef + "\xDC", kGClef, true, false, "\xDC"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.string) + " / " + testing::PrintToString(c.affix));
    EXPECT_EQ(VN_hasPrefix(c.string, c.affix), c.hasPrefix);
    EXPECT_EQ(VN_hasSuffix(c.string, c.affix), c.hasSuffix);
    EXPECT_EQ(VN_stringByRemovingPrefix(c.string, c.affix), c.removed);
  }
}

TEST(StringCompare, TrailingSlashAndLiteralContains) {
  for (auto [in, out] : {std::pair{"/tmp", "/tmp/"}, {"/tmp/", "/tmp/"}, {"//", "//"}, {"", "/"}})
    EXPECT_EQ(VN_stringWithTrailingSlash(in), out) << in;
  EXPECT_TRUE(containsString("/System/Library", "m/Li"));
  EXPECT_TRUE(containsString(std::string("x\0y", 3), std::string("\0y", 2)));
  for (auto [string, part] : {std::pair{std::string("/System/Library"), std::string("system")},
                              {"/System", ""}, {"", ""}, {kPrecomposed, kDecomposed}, {"a.c", "a?c"}})
    EXPECT_FALSE(containsString(string, part)) << string << " / " << part;
}

// Extended, unanchored, no newline handling; a pattern that does not
// compile matches nothing; invalid UTF-8 in the subject is searched as bytes.
TEST(StringRegEx, ExtendedPatterns) {
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"/System/Library", "^/System", true},
      {"/System", "system", false},
      {"/usr/lib/libx.so.1", "lib[a-z]+\\.so(\\.[0-9]+)?$", true},
      {"anything", "", true},
      {"line1\nline2", "1.line", true},
      {"((((", "(", false}, {"((((", "[a-", false}, {"((((", "a{2,1}", false}, {"((((", "*?\\", false},
      {"abc", kInvalid + "(", false},
      {kInvalid, "^ab", true},
      {kInvalid, "abc", false},
  };
  for (const auto& [subject, pattern, expected] : cases)
    EXPECT_EQ(containsRegEx(subject, pattern), expected) << subject << " ~ " << pattern;
}

// The textual test: a name like ".." counts as any other, invalid bytes too.
TEST(PathRefersToFSRoot, CountsComponentsWithSeparators) {
  for (const char* yes : {"/", "Users", "/Users", "Users/", "/Users/", "//Users//", "a", "/..",
                                "/name\nwith newline/", "/\xFF", "\xFF/", "/\xFF/", "/Users\xC3", "\xFF"})
    EXPECT_TRUE(VN_pathRefersToFSRoot(yes)) << yes;
  for (const char* no : {"/Users/a", "Users/a", "/Users/a/", "", "a/b/c", "/a/b/c/", "/Users/..", "/\xFF/a"})
    EXPECT_FALSE(VN_pathRefersToFSRoot(no)) << no;
  EXPECT_FALSE(VN_pathRefersToFSRoot("/" + std::string(5000, 'x') + "/y"));
  // A URL is asked about its path without the trailing separator.
  EXPECT_TRUE(VN_pathRefersToFSRoot(VNURL("/Users/")));
  EXPECT_FALSE(VN_pathRefersToFSRoot(VNURL("/Users/a/")));
}

TEST(Sha256Hash, HashesTheBytesAsGiven) {
  EXPECT_EQ(VN_sha256Hash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(VN_sha256Hash("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_NE(VN_sha256Hash(kPrecomposed), VN_sha256Hash(kDecomposed));
  EXPECT_NE(VN_sha256Hash(std::string("\0", 1)), VN_sha256Hash(""));
}

TEST(StringWithFormat, TakesAtMostTenArguments) {
  VNValue::Array eleven;
  for (int i = 1; i <= 11; ++i) eleven.emplace_back("v" + std::to_string(i));
  // The eleventh placeholder finds nothing: the array's eleventh element is ignored.
  EXPECT_EQ(VN_stringWithFormat("%@ %@ %@ %@ %@ %@ %@ %@ %@ %@ %@", eleven), "v1 v2 v3 v4 v5 v6 v7 v8 v9 v10 (null)");
  EXPECT_EQ(VN_stringWithFormat("%@-%@", {"a", "b", "c"}), "a-b");
  EXPECT_EQ(VN_stringWithFormat("%@/%@", {"only"}), "only/(null)");
  EXPECT_EQ(VN_stringWithFormat("n=%@ %%", {VNValue(42)}), "n=42 %");
}
