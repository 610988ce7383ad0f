#include <random>

#include "platform/VNComponentVersion.h"
#include "support/VNTest.h"

namespace {

struct OrderCase {
  const char* first;
  const char* second;
  int order;
};

// The documented cases of docs/bundle-versions.md, each checked both ways.
const OrderCase kOrderCases[] = {
    {"10.10", "10.9", 1},
    {"1.0", "1.0", 0},
    {"1.0", "1.0.1", -1},
    {"1.0", "1.0.0", -1},            // the end comes before any number
    {"1.0b2", "1.0", -1},            // a letter run is a pre-release marker
    {"1.0-beta", "1.0", -1},
    {"1.0a", "1.0b", -1},
    {"1.0RC1", "1.0rc2", -1},        // case is ignored within letters
    {"1.0rc1", "1.0.1", -1},         // letters before numbers
    {"1.0beta", "1.0b", 1},          // a prefix sorts first
    {"1.01", "1.1", -1},             // same value: then the bytes decide
    {"1.1", "1-1", 1},               // separators only divide runs
    {"2", "10", -1},
    {"007", "7", -1},
    {"", "0", -1},
    {"x", "", -1},
    {"99999999999999999999999", "99999999999999999999998", 1},  // beyond 64 bits
    {"1.\xc3\xa9t\xc3\xa9", "1.a", 1},  // bytes above ASCII are letters
};

TEST(VersionOrderTest, DocumentedCases) {
  for (const OrderCase& c : kOrderCases) {
    EXPECT_EQ(VNCompareVersionStrings(c.first, c.second), c.order) << c.first << " vs " << c.second;
    EXPECT_EQ(VNCompareVersionStrings(c.second, c.first), -c.order) << c.second << " vs " << c.first;
  }
}

TEST(VersionOrderTest, FieldPrecedenceAndAbsentStrings) {
  VNComponentVersion older{"2.0", "100", std::nullopt, "5", true};
  VNComponentVersion newer{"2.0", "100", "1", "4", true};
  VNComponentVersionOrder order = VNCompareComponentVersions(older, newer);
  EXPECT_EQ(order.order, -1);
  EXPECT_EQ(order.decidedBy, VNComponentVersionField::SourceVersion);
  newer.shortVersionString = "1.9";
  EXPECT_EQ(VNCompareComponentVersions(older, newer).decidedBy, VNComponentVersionField::ShortVersionString);
  EXPECT_EQ(VNCompareComponentVersions({}, {}).order, 0);
  EXPECT_FALSE(VNCompareComponentVersions({}, {}).decidedBy);
}

TEST(VersionOrderTest, HugeStringsCompareWithoutOverflow) {
  std::string digits(200000, '9');
  std::string more = "1" + std::string(200000, '0');
  EXPECT_EQ(VNCompareVersionStrings(digits, more), -1);
  std::string zeros = std::string(100000, '0') + "5";
  EXPECT_EQ(VNCompareVersionStrings(zeros, "4"), 1);
  std::string dotted;
  for (int i = 0; i < 20000; ++i) dotted += "1.";
  EXPECT_EQ(VNCompareVersionStrings(dotted + "2", dotted + "10"), -1);
}

std::string randomVersion(std::mt19937& random) {
  static const char* const kPieces[] = {"0", "1", "2", "9", "10", "01", "007", "a", "b", "beta", "RC",
                                        "rc", ".", "-", "_", " ", "~", "\xc3\xa9", "18446744073709551617"};
  std::uniform_int_distribution<int> count(0, 6), piece(0, std::size(kPieces) - 1);
  std::string version;
  for (int n = count(random); n > 0; --n) version += kPieces[piece(random)];
  return version;
}

// A total order: sorting by it and then checking neighbours and random
// pairs finds no pair that disagrees with the sorted positions, no pair of
// distinct strings called equal, and no asymmetric answer.
TEST(VersionOrderTest, IsATotalOrderOverGeneratedVersions) {
  std::mt19937 random(15);
  std::vector<std::string> versions(4000);
  for (std::string& version : versions) version = randomVersion(random);
  std::sort(versions.begin(), versions.end(),
            [](const std::string& a, const std::string& b) { return VNCompareVersionStrings(a, b) < 0; });
  auto check = [&](std::size_t i, std::size_t j) {
    int forward = VNCompareVersionStrings(versions[i], versions[j]);
    ASSERT_EQ(forward, -VNCompareVersionStrings(versions[j], versions[i])) << versions[i] << " | " << versions[j];
    ASSERT_EQ(forward == 0, versions[i] == versions[j]) << versions[i] << " | " << versions[j];
    if (forward != 0) {
      ASSERT_EQ(forward, i < j ? -1 : 1) << versions[i] << " | " << versions[j];
    }
  };
  for (std::size_t i = 0; i + 1 < versions.size(); ++i) check(i, i + 1);
  std::uniform_int_distribution<std::size_t> index(0, versions.size() - 1);
  for (int n = 0; n < 200000; ++n) check(index(random), index(random));
}

}  // namespace
