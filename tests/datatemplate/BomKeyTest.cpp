#include "datatemplate/internal/VNBomKey.h"
#include "support/VNTest.h"

using namespace std::string_literals;

TEST(BomKey, IgnoresLeadingDotSlashRepeatedAndTrailingSlashes) {
  for (const char* path : {"a/b", "./a/b", "/a/b", ".//./a//b/", "a/./b", "././/a/b///"})
    EXPECT_EQ(VNBomKeyForPath(path), "\0a\0b"s) << path;
  for (const char* path : {"", ".", "./", "/", "//", "./././"})
    EXPECT_EQ(VNBomKeyForPath(path), ""s) << path;
}

TEST(BomKey, RefusesDotDotAndOverlongPaths) {
  for (const char* path : {"..", "../a", "a/..", "a/../b", "./.."})
    EXPECT_FALSE(VNBomKeyForPath(path)) << path;
  EXPECT_EQ(VNBomKeyForPath("..a/b.."), "\0..a\0b.."s);
  std::string longest(kVNBomMaxKeyBytes - 1, 'x');
  EXPECT_TRUE(VNBomKeyForPath(longest));
  EXPECT_FALSE(VNBomKeyForPath(longest + "y"));
  EXPECT_FALSE(VNBomKeyForPath(longest + "/y"));
}

// Keys read from a file are checked byte by byte before they become paths.
TEST(BomKey, ValidKeysAreExactlyThoseOfPaths) {
  for (const std::string& key : {""s, "\0a"s, "\0a\0b c\0d"s, "\0..a\0b.."s, "\0.x\0x."s,
                                 "\0\xff\x01"s, "\0"s + std::string(kVNBomMaxKeyBytes - 1, 'x')})
    EXPECT_TRUE(VNBomIsValidKey(key)) << key.size();
  for (const std::string& key :
       {"a"s, "\0"s, "\0a\0"s, "\0a\0\0b"s, "\0."s, "\0.."s, "\0a\0.\0b"s, "\0a\0.."s,
        "\0a/b"s, "\0/"s, "\0"s + std::string(kVNBomMaxKeyBytes, 'x')})
    EXPECT_FALSE(VNBomIsValidKey(key)) << key.size();
  EXPECT_FALSE(VNBomKeyForPath("a/b\0c"s));
}

TEST(BomKey, PathAndShortNameRoundTrip) {
  EXPECT_EQ(VNBomPathForKey(""), ".");
  EXPECT_EQ(VNBomShortNameForKey(""), ".");
  EXPECT_EQ(VNBomPathForKey("\0a\0b c\0d"s), "a/b c/d");
  EXPECT_EQ(VNBomShortNameForKey("\0a\0b c\0d"s), "d");
  EXPECT_EQ(VNBomShortNameForKey("\0top"s), "top");
}

// Byte order of keys is depth-first pre-order, where plain path order is not
// ('.' and '-' sort before '/'), and a subtree is one contiguous key range.
TEST(BomKey, ByteOrderIsPreOrderAndSubtreesAreRanges) {
  std::vector<std::string> preOrder = {".", "a", "a/b", "a/b/c", "a/b!", "a-b", "a.b",
                                       "a.b/x", "a0", "b", "\xff"};
  std::vector<std::string> keys;
  for (const auto& path : preOrder) keys.push_back(*VNBomKeyForPath(path));
  std::vector<std::string> sorted = keys;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(sorted, keys);
  std::vector<std::string> paths = preOrder;
  std::sort(paths.begin(), paths.end());
  EXPECT_NE(paths, preOrder);

  std::string a = *VNBomKeyForPath("a");
  std::vector<std::string> inRange;
  for (const auto& key : keys)
    if (key >= VNBomKeyOfFirstDescendant(a) && key < VNBomKeyAfterSubtree(a))
      inRange.push_back(VNBomPathForKey(key));
  EXPECT_EQ(inRange, (std::vector<std::string>{"a/b", "a/b/c", "a/b!"}));
}
