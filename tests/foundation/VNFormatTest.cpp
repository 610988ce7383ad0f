#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "foundation/VNError.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNFormat.h"
#include "foundation/VNValue.h"

TEST(VNFormat, CConversionsMatchPrintf) {
  EXPECT_EQ(VNFormat("%s %d %ld %lu %u %x", "text", -5, -5L, 5UL, 7u, 255),
            "text -5 -5 5 7 ff");
  EXPECT_EQ(VNFormat("%u", -1), "4294967295") << "an int read as unsigned";
  EXPECT_EQ(VNFormat("%lu", -1L), "18446744073709551615");
  EXPECT_EQ(VNFormat("%ld", std::int64_t{1} << 40), "1099511627776");
  EXPECT_EQ(VNFormat("%d", std::int64_t{1} << 32), "0") << "narrowed to int, as printf reads it";
  EXPECT_EQ(VNFormat("%hhd", 200), "-56");
  EXPECT_EQ(VNFormat("%x %X %lx", 0xbeef, 0xbeef, -1L), "beef BEEF ffffffffffffffff");
  EXPECT_EQ(VNFormat("%zu %lld %llu", size_t{42}, -9LL, 9ULL), "42 -9 9");
  EXPECT_EQ(VNFormat("%f %.2f %.0f", 1.5, 3.14159, 2.5), "1.500000 3.14 2");
  EXPECT_EQ(VNFormat("%.2f", 7), "7.00") << "integers convert for floating conversions";
  EXPECT_EQ(VNFormat("%c%c", 'o', 'k'), "ok");
  EXPECT_EQ(VNFormat("100%% sure"), "100% sure");
  EXPECT_EQ(VNFormat("%5s|%-5s|%05d|%+d", "ab", "cd", 42, 3), "   ab|cd   |00042|+3");
}

TEST(VNFormat, HexBytesWithTwoDigits) {
  std::string hex;
  for (std::uint8_t byte : {0x00, 0x05, 0xab, 0xff}) hex += VNFormat("%02hhx", byte);
  EXPECT_EQ(hex, "0005abff");
  EXPECT_EQ(VNFormat("%02hhx", 0x1ff), "ff") << "narrowed to one byte";
  EXPECT_EQ(VNFormat("%02hhx", -1), "ff");
}

TEST(VNFormat, PointersPrintAsPrintfDoes) {
  int object = 0;
  char expected[64];
  std::snprintf(expected, sizeof expected, "%p", static_cast<void*>(&object));
  EXPECT_EQ(VNFormat("%p", static_cast<const void*>(&object)), expected);
  std::snprintf(expected, sizeof expected, "%p", static_cast<void*>(nullptr));
  EXPECT_EQ(VNFormat("%p", nullptr), expected);
}

TEST(VNFormat, ObjectsRenderTheirDescription) {
  VNValue dict = VNValue::dictionary();
  dict.set("key", VNValue("value"));
  EXPECT_EQ(VNFormat("%@", dict), "{\n    key = value;\n}");
  EXPECT_EQ(VNFormat("[%@]", VNValue("plain")), "[plain]");
  EXPECT_EQ(VNFormat("%@", VNValue(VNValue::Array{VNValue(1), VNValue(2.5)})),
            "(\n    1,\n    2.5\n)");

  VNError error = VNError::posix(ENOENT, "/no/such", "open");
  EXPECT_EQ(VNFormat("%@", error), error.description());
  EXPECT_EQ(VNFormat("%@", VNFileURL::fileURLWithPath("/a b", true)), "file:///a%20b/");
  EXPECT_EQ(VNFormat("%@ and %@", std::string("std"), "c string"), "std and c string");
  EXPECT_EQ(VNFormat("%@|%@|%@", 7, 1.5, -2), "7|1.5|-2");
  EXPECT_EQ(VNFormat("%@ %s", nullptr, static_cast<const char*>(nullptr)), "(null) (null)");
  EXPECT_EQ(VNFormat("%s", VNValue("as C string")), "as C string");
  EXPECT_EQ(VNFormat("%12@|%-6@|", VNValue("right"), "left"), "       right|left  |");
}

TEST(VNFormat, NonASCIITextPassesThroughUnchanged) {
  EXPECT_EQ(VNFormat("%@: %s", VNValue("Grüße"), "日本語 🙂"), "Grüße: 日本語 🙂");
}

TEST(VNFormat, MissingArgumentsRenderAsZeroOrNull) {
  EXPECT_EQ(VNFormat("%d %s %@ %f %p|"), "0 (null) (null) 0.000000 " + VNFormat("%p", nullptr) + "|");
  EXPECT_EQ(VNFormat("%d and %d", 1), "1 and 0");
}

TEST(VNFormat, StarWidthsAndPrecisionsTakeArgumentsFirst) {
  EXPECT_EQ(VNFormat("[%*d]", 5, 42), "[   42]");
  EXPECT_EQ(VNFormat("[%*d]", -5, 42), "[42   ]") << "a negative width left-justifies";
  EXPECT_EQ(VNFormat("[%-*s]", 4, "ab"), "[ab  ]");
  EXPECT_EQ(VNFormat("[%.*f]", 2, 3.14159), "[3.14]");
  EXPECT_EQ(VNFormat("[%*.*f]", 8, 3, 2.0), "[   2.000]");
  EXPECT_EQ(VNFormat("[%.*f]", -1, 0.5), "[0.500000]") << "a negative precision counts as none";
  EXPECT_EQ(VNFormat("[%*@]", 6, VNValue("ab")), "[    ab]");
}

TEST(VNFormat, OddFormatsAreCopiedThroughNeverExecuted) {
  EXPECT_EQ(VNFormat("%n", 1), "%n") << "no writes through %n";
  EXPECT_EQ(VNFormat("%k %d", 3), "%k 3");
  EXPECT_EQ(VNFormat("ends with %"), "ends with %");
  EXPECT_EQ(VNFormat("ends with %-5"), "ends with %-5");
  EXPECT_EQ(VNFormat("%d", "not a number"), "0");
  EXPECT_EQ(VNFormat("%s", 12), "(null)");
}
