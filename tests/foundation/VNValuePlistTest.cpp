#include <cmath>
#include <limits>

#include "foundation/VNValue.h"
#include "support/VNTest.h"

namespace {

using Format = VNValue::Format;
using Array = VNValue::Array;

std::optional<VNValue> parse(const std::string& bytes, VNError* error = nullptr) {
  return VNValue::fromPropertyList({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, error,
                                   "memory");
}

VNValue date(double seconds) { return VNValue(VNValue::Date{seconds}); }

// Every kind, nested, with the awkward values of each. XML holds dates to
// the whole second, so its sample has whole-second dates only.
VNValue sample(bool wholeSecondDates) {
  VNValue::Data allBytes;
  for (int i = 0; i < 256; ++i) allBytes.push_back(static_cast<std::uint8_t>(i));
  Array dates = {date(0), date(-86400.0 * 365 * 300), date(86400.0 * 365 * 200)};
  if (!wholeSecondDates)
    for (double seconds : {-0.5, 12.125, 700000000.000001, -1e10 - 0.75}) dates.push_back(date(seconds));
  VNValue inner = VNValue::dictionary();
  inner.set("ünïcødé kéy", VNValue("värde 日本語 🙂"));
  inner.set("", VNValue("empty key"));
  inner.set("deeper", VNValue(Array{VNValue::array(), VNValue::dictionary(), VNValue(Array{VNValue(1), VNValue(2)})}));
  VNValue root = VNValue::dictionary();
  root.set("booleans", VNValue(Array{VNValue(true), VNValue(false)}));
  root.set("integers", VNValue(Array{VNValue(0), VNValue(-1), VNValue(255), VNValue(-129), VNValue(std::int64_t{1} << 40),
                                     VNValue(std::numeric_limits<std::int64_t>::max()),
                                     VNValue(std::numeric_limits<std::int64_t>::min())}));
  root.set("reals", VNValue(Array{VNValue(0.1), VNValue(-2.5), VNValue(1e300), VNValue(4.9e-324), VNValue(0.0)}));
  root.set("strings", VNValue(Array{VNValue(""), VNValue("plain"), VNValue("<tag> & \"quotes\" 'apos'"),
                                    VNValue("tab\tnew\nline"), VNValue("Grüße, 世界")}));
  root.set("dates", VNValue(std::move(dates)));
  root.set("data", VNValue(Array{VNValue(VNValue::Data{}), VNValue(allBytes)}));
  root.set("emptyArray", VNValue::array());
  root.set("emptyDictionary", VNValue::dictionary());
  root.set("nested", inner);
  return root;
}

std::string xml(const std::string& body) { return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + body + "</plist>"; }

std::string nestedXML(int depth) {
  std::string arrays;
  for (int i = 0; i < depth; ++i) arrays += "<array>";
  for (int i = 0; i < depth; ++i) arrays += "</array>";
  return xml(arrays);
}

void appendBigEndian(std::string& out, std::uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

// A binary list of `levels` arrays, each listing the next one `fanOut`
// times, around an empty array; with `cycle` the innermost array lists the
// top one instead.
std::string nestedBinary(std::uint32_t levels, int fanOut = 1, bool cycle = false) {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (std::uint32_t i = 0; i < levels; ++i) {
    offsets.push_back(out.size());
    out += static_cast<char>(0xA0 | fanOut);
    for (int n = 0; n < fanOut; ++n) appendBigEndian(out, i + 1 < levels || !cycle ? i + 1 : 0, 4);
  }
  if (!cycle) {
    offsets.push_back(out.size());
    out += '\xA0';
  }
  std::uint64_t table = out.size();
  for (auto offset : offsets) appendBigEndian(out, offset, 4);
  out += std::string(6, '\0') + "\x04\x04";
  appendBigEndian(out, offsets.size(), 8);
  appendBigEndian(out, 0, 8);
  appendBigEndian(out, table, 8);
  return out;
}

size_t leafCount(const VNValue& value) {
  size_t leaves = 0;
  for (const auto& item : *value.asArray()) leaves += leafCount(item);
  return std::max<size_t>(leaves, 1);
}

void expectInvalid(const std::string& bytes, const std::string& what) {
  VNError error;
  EXPECT_FALSE(parse(bytes, &error)) << what;
  EXPECT_TRUE(error.isPOSIX(EINVAL)) << what << ": " << error.description();
  EXPECT_EQ(error.filePath(), "memory") << what;
}

}  // namespace

TEST(VNValuePlist, EveryKindRoundTripsThroughBothFormats) {
  for (auto [format, magic] : {std::pair{Format::Binary, "bplist00"}, {Format::XML, "<?xml"}}) {
    VNValue value = sample(/*wholeSecondDates=*/format == Format::XML);
    VNError error;
    auto bytes = value.propertyListData(format, &error);
    ASSERT_TRUE(bytes) << error.description();
    EXPECT_EQ(bytes->rfind(magic, 0), 0u);
    auto read = parse(*bytes, &error);
    ASSERT_TRUE(read) << error.description() << "\n" << *bytes;
    EXPECT_EQ(*read, value) << *bytes;
  }
}

// Binary keeps any finite date exactly; XML keeps whole seconds toward zero
// and only within the years 1 to 9999; neither writes NaN or infinity.
TEST(VNValuePlist, DatesInEachFormat) {
  const double firstXML = -63113904000.0, lastXML = 252423993599.0;  // 0001-01-01, 9999-12-31T23:59:59
  for (double seconds : {-0.5, -1.25, 0.75, 12.000001, -3e9, 3e9, firstXML, lastXML}) {
    VNValue value = date(seconds);
    EXPECT_EQ(parse(*value.propertyListData(Format::Binary))->asDate()->sinceReferenceDate, seconds);
    EXPECT_EQ(parse(*value.propertyListData(Format::XML))->asDate()->sinceReferenceDate, std::trunc(seconds));
  }
  for (double seconds : {firstXML - 1, lastXML + 1, -1.2e14}) {
    VNValue value(Array{date(seconds)});
    VNError error;
    EXPECT_FALSE(value.propertyListData(Format::XML, &error)) << seconds;
    EXPECT_TRUE(error.isPOSIX(EINVAL));
    EXPECT_EQ(*parse(*value.propertyListData(Format::Binary)), value);
  }
  for (double odd : {std::nan(""), HUGE_VAL})
    for (auto format : {Format::Binary, Format::XML}) EXPECT_FALSE(date(odd).propertyListData(format));
  EXPECT_EQ(VNValue::Date::fromUnixTime(0).sinceReferenceDate, -978307200.0);
  EXPECT_EQ(VNValue::Date::fromUnixTime(0).unixTime(), 0.0);
}

TEST(VNValuePlist, IntegersBeyondTheSignedRangeAreRefused) {
  EXPECT_EQ(parse(xml("<integer>-9223372036854775808</integer>"))->asInteger(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parse(xml("<integer>9223372036854775807</integer>"))->asInteger(), std::numeric_limits<std::int64_t>::max());
  expectInvalid(xml("<integer>9223372036854775808</integer>"), "2^63");
  expectInvalid(xml("<integer>18446744073709551615</integer>"), "2^64-1");
}

// Null values, values nested too deep, and text that is not UTF-8 (or
// holds a NUL) are not written.
TEST(VNValuePlist, WhatCannotBeWrittenIsRefused) {
  VNValue deep = VNValue::array();
  for (int i = 0; i < 600; ++i) deep = VNValue(Array{deep});
  VNValue badKey = VNValue::dictionary();
  badKey.set("\xc3(", VNValue(1));
  const VNValue refused[] = {VNValue(), VNValue(Array{VNValue(1), VNValue()}), deep, VNValue("org.var\xee" "el"),
                             VNValue(std::string("nul\0inside", 10)), badKey, VNValue("\xed\xa0\x80")};
  for (const VNValue& value : refused) {
    for (auto format : {Format::Binary, Format::XML}) {
      VNError error;
      EXPECT_FALSE(value.propertyListData(format, &error)) << value.description();
      EXPECT_TRUE(error.isPOSIX(EINVAL));
    }
  }
}

// Strings that are not UTF-8 or hold a NUL are refused when read, before
// libplist (which asserts on a NUL) sees them.
TEST(VNValuePlist, StringsThatAreNotUTF8OrHoldANulAreNotRead) {
  expectInvalid(xml("<string>a\xee" "b</string>"), "XML string with an invalid byte");
  expectInvalid(xml("<dict><key>" + std::string("k\0ey", 4) + "</key><true/></dict>"), "raw NUL in a key");
  expectInvalid(xml("<dict><key>k</key><string>a&#0;b</string></dict>"), "&#0;");
  expectInvalid(xml("<dict><key>k</key><string>a&#x000;b</string></dict>"), "&#x000;");
  EXPECT_EQ(*parse(xml("<string>a&#x41;&#10;b</string>")), VNValue("aA\nb"));
  // An ASCII string object with a byte above 0x7F or a NUL, and a UTF-16 one
  // whose unit 00 62 becomes 00 00.
  for (auto [text, replacement] : {std::pair{"ab", '\xee'}, {"ab", '\0'}, {"\u00e9b", '\0'}}) {
    std::string binary = *VNValue(Array{VNValue(text)}).propertyListData(Format::Binary);
    binary[binary.find('b', 8)] = replacement;
    expectInvalid(binary, text);
  }
}

// Within bounds, and far beyond what libplist's recursive parser or its
// copying of shared objects survives.
TEST(VNValuePlist, NestingAndSharingAreBounded) {
  EXPECT_TRUE(parse(nestedXML(512)));
  expectInvalid(nestedXML(513), "XML 513 deep");
  EXPECT_TRUE(parse(nestedBinary(511))) << "511 arrays around an empty one: 512 deep";
  expectInvalid(nestedBinary(512), "binary 513 deep");
  expectInvalid(nestedXML(300000), "XML 300000 deep");
  expectInvalid(nestedBinary(300000), "binary 300000 deep");
  expectInvalid(nestedBinary(3, 1, /*cycle=*/true), "binary cycle");
  EXPECT_EQ(leafCount(*parse(nestedBinary(7, 2))), 128u);
  expectInvalid(nestedBinary(40, 2), "2^40 leaves from a few hundred bytes");
  expectInvalid(nestedBinary(400, 2), "2^400 leaves");
}

// Random bytes are the fuzz target's; these are the shapes it starts from.
TEST(VNValuePlist, BytesThatAreNoPropertyListFailCleanly) {
  for (const std::string& bytes : {std::string(), std::string("hello, world\n"), std::string("bplist00"),
                                   xml("<dict><key>a</key>"), xml("<array></dict>"), std::string(4, '\0')})
    expectInvalid(bytes, bytes);
  std::string whole = *sample(false).propertyListData(Format::Binary);
  for (size_t length = 0; length < whole.size(); ++length) expectInvalid(whole.substr(0, length), "truncated");
}

TEST(VNValuePlist, FilesRoundTripAndFailuresNameThePath) {
  VNTestDir dir;
  VNValue value = sample(false);
  VNError error;
  ASSERT_TRUE(value.writePropertyListFile(dir / "v.plist", Format::Binary, &error)) << error.description();
  EXPECT_EQ(*VNValue::fromPropertyListFile(dir / "v.plist", &error), value);
  VNWriteTestFile(dir / "text.plist", "just some text\n");
  VNWriteTestFile(dir / "empty.plist", "");
  const std::pair<std::string, int> failures[] = {
      {dir / "text.plist", EINVAL}, {dir / "empty.plist", EINVAL}, {dir / "missing.plist", ENOENT}, {dir.path(), EISDIR}};
  for (const auto& [path, code] : failures) {
    EXPECT_FALSE(VNValue::fromPropertyListFile(path, &error));
    EXPECT_TRUE(error.isPOSIX(code)) << error.description();
    EXPECT_EQ(error.filePath(), path);
    EXPECT_NE(error.localizedDescription().find("'" + path + "'"), std::string::npos) << error.localizedDescription();
  }
}
