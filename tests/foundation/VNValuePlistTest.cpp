#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "foundation/VNError.h"
#include "foundation/VNValue.h"
#include "support/VNTestDir.h"

namespace {

using Format = VNValue::Format;

std::span<const std::uint8_t> asBytes(const std::string& s) {
  return {reinterpret_cast<const std::uint8_t*>(s.data()), s.size()};
}

std::optional<VNValue> parse(const std::string& bytes, VNError* error = nullptr) {
  return VNValue::fromPropertyList(asBytes(bytes), error, "memory");
}

// Every kind, nested, with the awkward values of each. XML holds dates to
// the whole second, so the XML sample uses whole-second dates.
VNValue sample(bool wholeSecondDates) {
  VNValue::Data allBytes;
  for (int i = 0; i < 256; ++i) allBytes.push_back(static_cast<std::uint8_t>(i));
  auto date = [&](double seconds) { return VNValue(VNValue::Date{seconds}); };
  VNValue::Array dates = {date(0), date(-86400.0 * 365 * 300), date(86400.0 * 365 * 200)};
  if (!wholeSecondDates) {
    dates.push_back(date(-0.5));
    dates.push_back(date(12.125));
    dates.push_back(date(700000000.000001));
    dates.push_back(date(-1e10 - 0.75));
  }
  VNValue inner = VNValue::dictionary();
  inner.set("ünïcødé kéy", VNValue("värde 日本語 🙂"));
  inner.set("", VNValue("empty key"));
  inner.set("deeper", VNValue(VNValue::Array{VNValue::array(), VNValue::dictionary(),
                                              VNValue(VNValue::Array{VNValue(1), VNValue(2)})}));
  VNValue root = VNValue::dictionary();
  root.set("booleans", VNValue(VNValue::Array{VNValue(true), VNValue(false)}));
  root.set("integers", VNValue(VNValue::Array{
                           VNValue(0), VNValue(-1), VNValue(255), VNValue(-129),
                           VNValue(std::int64_t{1} << 40),
                           VNValue(std::numeric_limits<std::int64_t>::max()),
                           VNValue(std::numeric_limits<std::int64_t>::min())}));
  root.set("reals", VNValue(VNValue::Array{VNValue(0.1), VNValue(-2.5), VNValue(1e300),
                                           VNValue(4.9e-324), VNValue(0.0)}));
  root.set("strings", VNValue(VNValue::Array{VNValue(""), VNValue("plain"),
                                             VNValue("<tag> & \"quotes\" 'apos'"),
                                             VNValue("tab\tnew\nline"), VNValue("Grüße, 世界")}));
  root.set("dates", VNValue(std::move(dates)));
  root.set("data", VNValue(VNValue::Array{VNValue(VNValue::Data{}), VNValue(allBytes)}));
  root.set("emptyArray", VNValue::array());
  root.set("emptyDictionary", VNValue::dictionary());
  root.set("nested", inner);
  return root;
}

std::string nestedXML(int depth) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) xml += "<array>";
  for (int i = 0; i < depth; ++i) xml += "</array>";
  return xml + "</plist>\n";
}

void appendBigEndian(std::string& out, std::uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

// A binary list of `depth` arrays each holding the next one. With `cycle`,
// the innermost array refers back to the top one.
std::string nestedBinary(std::uint32_t depth, bool cycle = false) {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (std::uint32_t i = 0; i < depth; ++i) {
    offsets.push_back(out.size());
    out += '\xA1';
    appendBigEndian(out, i + 1 < depth || !cycle ? i + 1 : 0, 4);
  }
  if (!cycle) {
    offsets.push_back(out.size());
    out += '\xA0';
  }
  std::uint64_t table = out.size();
  for (auto offset : offsets) appendBigEndian(out, offset, 4);
  out += std::string(6, '\0');
  out += '\x04';
  out += '\x04';
  appendBigEndian(out, offsets.size(), 8);
  appendBigEndian(out, 0, 8);
  appendBigEndian(out, table, 8);
  return out;
}

void expectInvalid(const std::string& bytes, const std::string& what) {
  VNError error;
  EXPECT_FALSE(parse(bytes, &error)) << what;
  EXPECT_TRUE(error.isPOSIX(EINVAL)) << what << ": " << error.description();
  EXPECT_EQ(error.filePath(), "memory") << what;
}

}  // namespace

TEST(VNValuePlist, EveryKindRoundTripsThroughBinaryExactly) {
  VNValue value = sample(/*wholeSecondDates=*/false);
  VNError error;
  auto bytes = value.propertyListData(Format::Binary, &error);
  ASSERT_TRUE(bytes) << error.description();
  EXPECT_EQ(bytes->substr(0, 8), "bplist00");
  auto read = parse(*bytes, &error);
  ASSERT_TRUE(read) << error.description();
  EXPECT_EQ(*read, value) << read->description();
}

TEST(VNValuePlist, EveryKindRoundTripsThroughXML) {
  VNValue value = sample(/*wholeSecondDates=*/true);
  VNError error;
  auto bytes = value.propertyListData(Format::XML, &error);
  ASSERT_TRUE(bytes) << error.description();
  EXPECT_NE(bytes->find("<plist"), std::string::npos);
  auto read = parse(*bytes, &error);
  ASSERT_TRUE(read) << error.description() << "\n" << *bytes;
  EXPECT_EQ(*read, value) << *bytes;
}

TEST(VNValuePlist, DatesKeepTheirSignAndFractionInBinaryAndWholeSecondsInXML) {
  for (double seconds : {-0.5, -1.25, 0.75, 12.000001, -3e9, 3e9}) {
    VNValue value(VNValue::Date{seconds});
    auto binary = parse(*value.propertyListData(Format::Binary));
    ASSERT_TRUE(binary);
    EXPECT_EQ(binary->asDate()->sinceReferenceDate, seconds);
    auto xml = parse(*value.propertyListData(Format::XML));
    ASSERT_TRUE(xml);
    EXPECT_EQ(xml->asDate()->sinceReferenceDate, std::trunc(seconds)) << seconds;
  }
  auto unixEpoch = VNValue::Date::fromUnixTime(0);
  EXPECT_EQ(unixEpoch.sinceReferenceDate, -978307200.0);
  EXPECT_EQ(unixEpoch.unixTime(), 0.0);
}

TEST(VNValuePlist, XMLCarriesDatesOfFourDigitYearsOnly) {
  const double firstXML = -63113904000.0;  // 0001-01-01T00:00:00Z
  const double lastXML = 252423993599.0;   // 9999-12-31T23:59:59Z
  for (double seconds : {firstXML, lastXML}) {
    auto read = parse(*VNValue(VNValue::Date{seconds}).propertyListData(Format::XML));
    ASSERT_TRUE(read) << seconds;
    EXPECT_EQ(read->asDate()->sinceReferenceDate, seconds);
  }
  for (double seconds : {firstXML - 1, lastXML + 1, -1.2e14}) {
    VNValue value(VNValue::Array{VNValue(VNValue::Date{seconds})});
    VNError error;
    EXPECT_FALSE(value.propertyListData(Format::XML, &error)) << seconds;
    EXPECT_TRUE(error.isPOSIX(EINVAL));
    auto binary = parse(*value.propertyListData(Format::Binary));
    ASSERT_TRUE(binary) << "binary lists carry any finite date";
    EXPECT_EQ(*binary, value);
  }
  for (double odd : {std::nan(""), HUGE_VAL}) {
    EXPECT_FALSE(VNValue(VNValue::Date{odd}).propertyListData(Format::Binary));
    EXPECT_FALSE(VNValue(VNValue::Date{odd}).propertyListData(Format::XML));
  }
}

TEST(VNValuePlist, IntegersBeyondTheSignedRangeAreRefused) {
  auto xml = [](const char* number) {
    return std::string("<?xml version=\"1.0\"?><plist version=\"1.0\"><integer>") + number +
           "</integer></plist>";
  };
  auto smallest = parse(xml("-9223372036854775808"));
  ASSERT_TRUE(smallest);
  EXPECT_EQ(smallest->asInteger(), std::numeric_limits<std::int64_t>::min());
  auto largest = parse(xml("9223372036854775807"));
  ASSERT_TRUE(largest);
  EXPECT_EQ(largest->asInteger(), std::numeric_limits<std::int64_t>::max());
  expectInvalid(xml("9223372036854775808"), "2^63");
  expectInvalid(xml("18446744073709551615"), "2^64-1");
}

TEST(VNValuePlist, NullValuesAndTooDeepValuesCannotBeWritten) {
  VNError error;
  EXPECT_FALSE(VNValue().propertyListData(Format::XML, &error));
  EXPECT_TRUE(error.isPOSIX(EINVAL));
  VNValue withNull(VNValue::Array{VNValue(1), VNValue()});
  EXPECT_FALSE(withNull.propertyListData(Format::Binary));

  VNValue deep = VNValue::array();
  for (int i = 0; i < 600; ++i) deep = VNValue(VNValue::Array{deep});
  error = {};
  EXPECT_FALSE(deep.propertyListData(Format::Binary, &error));
  EXPECT_TRUE(error.isPOSIX(EINVAL));
}

TEST(VNValuePlist, OnlyUTF8TextIsReadOrWritten) {
  VNError error;
  EXPECT_FALSE(VNValue("org.var\xee" "el").propertyListData(Format::Binary, &error));
  EXPECT_TRUE(error.isPOSIX(EINVAL));
  EXPECT_FALSE(VNValue(std::string("nul\0inside", 10)).propertyListData(Format::XML));
  VNValue badKey = VNValue::dictionary();
  badKey.set("\xc3(", VNValue(1));
  EXPECT_FALSE(badKey.propertyListData(Format::XML));
  EXPECT_FALSE(VNValue("\xed\xa0\x80").propertyListData(Format::XML)) << "a UTF-16 surrogate";

  // An ASCII string object holding a byte above 0x7F, and the same in XML.
  std::string binary = *VNValue("ab").propertyListData(Format::Binary);
  size_t at = binary.find("ab");
  ASSERT_NE(at, std::string::npos);
  binary[at + 1] = '\xee';
  expectInvalid(binary, "binary string with an invalid byte");
  expectInvalid("<?xml version=\"1.0\"?><plist version=\"1.0\"><string>a\xee" "b</string></plist>",
                "XML string with an invalid byte");
  EXPECT_TRUE(parse(*VNValue("Grüße 🙂").propertyListData(Format::Binary)));
}

// libplist asserts (aborting the process) when asked for a string that
// holds a NUL; such lists are refused before it sees them.
TEST(VNValuePlist, StringsWithNulAreRefusedBeforeLibplistSeesThem) {
  const std::string head = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>";
  expectInvalid(head + std::string("k\0ey", 4) + "</key><true/></dict></plist>", "raw NUL in a key");
  expectInvalid(head + "k</key><string>a&#0;b</string></dict></plist>", "&#0;");
  expectInvalid(head + "k</key><string>a&#x000;b</string></dict></plist>", "&#x000;");
  EXPECT_TRUE(parse(head + "k</key><string>a&#x41;&#10;b</string></dict></plist>"));

  // An ASCII string object, and a UTF-16 one whose unit 00 62 becomes 00 00.
  for (const char* text : {"ab", "\u00e9b"}) {
    std::string binary = *VNValue(VNValue::Array{VNValue(text)}).propertyListData(Format::Binary);
    size_t at = binary.find('b', 8);
    ASSERT_NE(at, std::string::npos);
    binary[at] = '\0';
    expectInvalid(binary, std::string("binary NUL in ") + text);
  }
}

TEST(VNValuePlist, NestingIsAcceptedUpToTheLimitAndRefusedBeyond) {
  EXPECT_TRUE(parse(nestedXML(512)));
  expectInvalid(nestedXML(513), "XML 513 deep");
  EXPECT_TRUE(parse(nestedBinary(511))) << "511 arrays around an empty one: 512 deep";
  expectInvalid(nestedBinary(512), "binary 513 deep");
  // Far beyond what libplist's recursive parser survives.
  expectInvalid(nestedXML(300000), "XML 300000 deep");
  expectInvalid(nestedBinary(300000), "binary 300000 deep");
  expectInvalid(nestedBinary(3, /*cycle=*/true), "binary cycle");
}

namespace {

// `levels` arrays that each list the next one twice: a small file that
// libplist would copy out into a tree of 2^levels leaves.
std::string sharedBinary(std::uint32_t levels) {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (std::uint32_t i = 0; i < levels; ++i) {
    offsets.push_back(out.size());
    out += '\xA2';
    appendBigEndian(out, i + 1, 2);
    appendBigEndian(out, i + 1, 2);
  }
  offsets.push_back(out.size());
  out += '\x09';  // true
  std::uint64_t table = out.size();
  for (auto offset : offsets) appendBigEndian(out, offset, 2);
  out += std::string(6, '\0') + "\x02\x02";
  appendBigEndian(out, offsets.size(), 8);
  appendBigEndian(out, 0, 8);
  appendBigEndian(out, table, 8);
  return out;
}

size_t leafCount(const VNValue& value) {
  if (!value.asArray()) return 1;
  size_t leaves = 0;
  for (const auto& item : *value.asArray()) leaves += leafCount(item);
  return leaves;
}

}  // namespace

TEST(VNValuePlist, SharedObjectsExpandOnlyWithinBounds) {
  auto small = parse(sharedBinary(7));
  ASSERT_TRUE(small);
  EXPECT_EQ(leafCount(*small), 128u);
  expectInvalid(sharedBinary(40), "2^40 leaves from a few hundred bytes");
  expectInvalid(sharedBinary(400), "2^400 leaves");
}

TEST(VNValuePlist, BytesThatAreNoPropertyListFailCleanly) {
  expectInvalid("", "empty");
  expectInvalid("hello, world\n", "text");
  expectInvalid("bplist00", "binary header alone");
  expectInvalid("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>", "unclosed");
  expectInvalid("<?xml version=\"1.0\"?><plist version=\"1.0\"><array></dict></plist>", "mismatched");
  expectInvalid(std::string("\0\0\0\0", 4), "zeros");

  std::mt19937 random(20260123);
  for (int round = 0; round < 300; ++round) {
    std::string noise(random() % 300, '\0');
    for (auto& c : noise) c = static_cast<char>(random());
    if (round % 2) noise.replace(0, std::min<size_t>(8, noise.size()), "bplist00");
    VNError error;
    if (!parse(noise, &error)) {
      EXPECT_TRUE(error.isPOSIX(EINVAL)) << round;
    }
  }
}

TEST(VNValuePlist, EveryTruncationOfABinaryListFailsCleanly) {
  std::string whole = *sample(false).propertyListData(Format::Binary);
  for (size_t length = 0; length < whole.size(); ++length) {
    VNError error;
    auto read = parse(whole.substr(0, length), &error);
    EXPECT_FALSE(read) << "truncated to " << length;
    if (!read) {
      EXPECT_TRUE(error.isPOSIX(EINVAL)) << length;
    }
  }
}

TEST(VNValuePlist, FilesRoundTripAndFailuresNameThePath) {
  VNTestDir dir;
  VNValue value = sample(false);
  VNError error;
  ASSERT_TRUE(value.writePropertyListFile(dir / "v.plist", Format::Binary, &error))
      << error.description();
  auto read = VNValue::fromPropertyListFile(dir / "v.plist", &error);
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, value);

  VNWriteTestFile(dir / "text.plist", "just some text\n");
  EXPECT_FALSE(VNValue::fromPropertyListFile(dir / "text.plist", &error));
  EXPECT_TRUE(error.isPOSIX(EINVAL));
  EXPECT_EQ(error.filePath(), dir / "text.plist");
  EXPECT_NE(error.localizedDescription().find("'" + dir / "text.plist" + "'"), std::string::npos)
      << error.localizedDescription();

  VNWriteTestFile(dir / "empty.plist", "");
  EXPECT_FALSE(VNValue::fromPropertyListFile(dir / "empty.plist", &error));
  EXPECT_TRUE(error.isPOSIX(EINVAL));

  EXPECT_FALSE(VNValue::fromPropertyListFile(dir / "missing.plist", &error));
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir / "missing.plist");
  EXPECT_FALSE(VNValue::fromPropertyListFile(dir.path(), &error));
  EXPECT_TRUE(error.isPOSIX(EISDIR));
}
