#include "foundation/VNFileURL.h"
#include "foundation/VNFormat.h"
#include "foundation/VNValue.h"
#include "support/VNTest.h"

namespace {

std::string printed(const char* format, const void* pointer) {
  char text[64];
  std::snprintf(text, sizeof text, format, pointer);
  return text;
}

// C conversions as printf reads its arguments (narrowed, reinterpreted);
// missing arguments read as zero or null; "*" takes an argument first.
TEST(VNFormat, CConversionsMatchPrintf) {
  int object = 0;
  const std::pair<std::string, std::string> cases[] = {
      {VNFormat("%s %d %ld %lu %u %x", "text", -5, -5L, 5UL, 7u, 255), "text -5 -5 5 7 ff"},
      {VNFormat("%u|%lu", -1, -1L), "4294967295|18446744073709551615"},
      {VNFormat("%ld|%d", std::int64_t{1} << 40, std::int64_t{1} << 32), "1099511627776|0"},
      {VNFormat("%hhd|%02hhx|%02hhx|%02hhx", 200, 0x05, 0x1ff, -1), "-56|05|ff|ff"},
      {VNFormat("%x %X %lx", 0xbeef, 0xbeef, -1L), "beef BEEF ffffffffffffffff"},
      {VNFormat("%zu %lld %llu", size_t{42}, -9LL, 9ULL), "42 -9 9"},
      {VNFormat("%f %.2f %.0f %.2f", 1.5, 3.14159, 2.5, 7), "1.500000 3.14 2 7.00"},
      {VNFormat("%c%c 100%% sure", 'o', 'k'), "ok 100% sure"},
      {VNFormat("%5s|%-5s|%05d|%+d", "ab", "cd", 42, 3), "   ab|cd   |00042|+3"},
      {VNFormat("[%*d][%*d][%-*s]", 5, 42, -5, 42, 4, "ab"), "[   42][42   ][ab  ]"},
      {VNFormat("[%.*f][%*.*f][%.*f]", 2, 3.14159, 8, 3, 2.0, -1, 0.5), "[3.14][   2.000][0.500000]"},
      {VNFormat("%p", static_cast<const void*>(&object)), printed("%p", &object)},
      {VNFormat("%d %s %@ %f %p|"), "0 (null) (null) 0.000000 " + printed("%p", nullptr) + "|"},
      {VNFormat("%d and %d", 1), "1 and 0"},
      {VNFormat("%d|%s", "not a number", 12), "0|(null)"},
  };
  for (const auto& [got, want] : cases) EXPECT_EQ(got, want);
}

// Conversions it does not know, "%n" above all, are copied, never executed.
TEST(VNFormat, OddFormatsAreCopiedThroughNeverExecuted) {
  EXPECT_EQ(VNFormat("%n", 1), "%n");
  EXPECT_EQ(VNFormat("%k %d", 3), "%k 3");
  EXPECT_EQ(VNFormat("ends with %"), "ends with %");
  EXPECT_EQ(VNFormat("ends with %-5"), "ends with %-5");
}

TEST(VNFormat, ObjectsRenderTheirDescription) {
  VNValue dict = VNValue::dictionary();
  dict.set("key", VNValue("value"));
  VNError error = VNError::posix(ENOENT, "/no/such", "open");
  const std::pair<std::string, std::string> cases[] = {
      {VNFormat("%@", dict), "{\n    key = value;\n}"},
      {VNFormat("[%@]", VNValue("plain")), "[plain]"},
      {VNFormat("%@", VNValue(VNValue::Array{VNValue(1), VNValue(2.5)})), "(\n    1,\n    2.5\n)"},
      {VNFormat("%@", error), error.description()},
      {VNFormat("%@", VNFileURL::fileURLWithPath("/a b", true)), "file:///a%20b/"},
      {VNFormat("%@ and %@", std::string("std"), "c string"), "std and c string"},
      {VNFormat("%@|%@|%@", 7, 1.5, -2), "7|1.5|-2"},
      {VNFormat("%@ %s", nullptr, static_cast<const char*>(nullptr)), "(null) (null)"},
      {VNFormat("%s", VNValue("as C string")), "as C string"},
      {VNFormat("%12@|%-6@|[%*@]", VNValue("right"), "left", 6, VNValue("ab")), "       right|left  |[    ab]"},
      {VNFormat("%@: %s", VNValue("Grüße"), "日本語 🙂"), "Grüße: 日本語 🙂"},
  };
  for (const auto& [got, want] : cases) EXPECT_EQ(got, want);
}

}  // namespace
