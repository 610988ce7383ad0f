#include <gtest/gtest.h>

#include <string>

#include "foundation/VNError.h"
#include "foundation/VNValue.h"

// What each text reads as, written back as compact JSON; an empty expectation
// means the text is refused, and then the error names the byte at fault.
TEST(VNValueJSON, ReadsWhatItWritesAndRefusesTheRest) {
  struct Case {
    std::string text;
    std::string written;
    size_t faultAt = 0;
  } cases[] = {
      {R"( {"b":[1,-2.5,true,null],"a":{}} )", R"({"a":{},"b":[1,-2.5,true,null]})"},
      {R"("\u00e9\ud83d\ude00\/\b")", "\"\xc3\xa9\xf0\x9f\x98\x80/\\u0008\""},
      {R"("\udcff\udc80x")", R"("\udcff\udc80x")"},  // bytes outside UTF-8 come back as bytes
      {"[-0,9223372036854775807,9223372036854775808,1e2]", "[-0,9223372036854775807,9.2233720368547758e+18,100]"},
      {"", "", 0},
      {"[1,]", "", 3},
      {R"({"a":1,"a":2})", "", 12},
      {"01", "", 0},
      {"1.", "", 2},
      {"1e999", "", 5},
      {R"("\ud800x")", "", 7},
      {R"("\udc20")", "", 7},
      {"\"\xff\"", "", 1},
      {"\"a\nb\"", "", 2},
      {"\"abc", "", 4},
      {"[] []", "", 3},
      {std::string(514, '[') + std::string(514, ']'), "", 513},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    VNError error;
    auto value = VNValue::fromJSON(c.text, &error, "payload");
    if (c.written.empty()) {
      ASSERT_FALSE(value);
      EXPECT_TRUE(error.isPOSIX(EINVAL));
      EXPECT_NE(error.localizedDescription().find(" at byte " + std::to_string(c.faultAt) + ":"), std::string::npos)
          << error.localizedDescription();
      EXPECT_EQ(error.filePath(), "payload");
      continue;
    }
    ASSERT_TRUE(value) << error.localizedDescription();
    EXPECT_EQ(value->jsonString(), c.written);
  }
}
