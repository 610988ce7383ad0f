#include <cmath>
#include <limits>

#include "foundation/VNValue.h"
#include "support/VNTest.h"

TEST(VNValueDescription, NestedValuesIndentFourSpacesPerLevel) {
  VNValue inner = VNValue::dictionary();
  inner.set("list", VNValue(VNValue::Array{VNValue(1), VNValue("two words"), VNValue(true)}));
  inner.set("empty", VNValue::array());
  VNValue root = VNValue::dictionary();
  root.set("name", VNValue("plain"));
  root.set("inner", inner);
  root.set("data", VNValue(VNValue::Data{0x01, 0xff}));
  root.set("when", VNValue(VNValue::Date{-0.5}));
  root.set("key with space", VNValue(""));
  EXPECT_EQ(root.description(),
            "{\n"
            "    data = {length = 2, bytes = 0x01ff};\n"
            "    inner = {\n"
            "        empty = (\n"
            "        );\n"
            "        list = (\n"
            "            1,\n"
            "            \"two words\",\n"
            "            1\n"
            "        );\n"
            "    };\n"
            "    \"key with space\" = \"\";\n"
            "    name = plain;\n"
            "    when = 2000-12-31 23:59:59 +0000;\n"
            "}");
}

// Scalars at the top stand alone (a string is its own text); strings in a
// container are quoted when they would break the text.
TEST(VNValueDescription, ScalarsAndQuoting) {
  const std::pair<VNValue, const char*> cases[] = {
      {VNValue("two words"), "two words"},
      {VNValue(), "(null)"},
      {VNValue(false), "0"},
      {VNValue(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
      {VNValue(0.25), "0.25"},
      {VNValue(VNValue::Date{0}), "2001-01-01 00:00:00 +0000"},
      {VNValue(VNValue::Data{}), "{length = 0, bytes = 0x}"},
      {VNValue::dictionary(), "{\n}"},
      {VNValue(VNValue::Array{VNValue("say \"hi\"\\now"), VNValue("line\nbreak"), VNValue("é")}),
       "(\n    \"say \\\"hi\\\"\\\\now\",\n    \"line\\nbreak\",\n    é\n)"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(value.description(), text);
}

TEST(VNValueDescription, JSONEscapesAndRendersEveryKind) {
  VNValue root = VNValue::dictionary();
  root.set("s", VNValue("q\"\\\n\x01"));
  root.set("d", VNValue(VNValue::Data{'M', 'a', 'n', 'y'}));
  root.set("t", VNValue(VNValue::Date::fromUnixTime(0)));
  root.set("r", VNValue(std::nan("")));
  root.set("n", VNValue(VNValue::Array{VNValue(-1), VNValue(0.5), VNValue(false)}));
  EXPECT_EQ(root.jsonString(),
            "{\"d\":\"TWFueQ==\",\"n\":[-1,0.5,false],\"r\":null,\"s\":\"q\\\"\\\\\\n\\u0001\","
            "\"t\":\"1970-01-01T00:00:00Z\"}");
  EXPECT_EQ(VNValue::array().jsonString(true), "[]");
}

// A read file may hold any double as a date; those beyond the calendar are
// written as seconds rather than converted to a time out of range.
TEST(VNValueDescription, DatesBeyondTheCalendarAreWrittenAsSeconds) {
  const double beyond[] = {5.6e141, -5.6e141, std::numeric_limits<double>::infinity()};
  for (double seconds : beyond) {
    VNValue date(VNValue::Date{seconds});
    EXPECT_NE(date.description().find(" s from 2001-01-01"), std::string::npos) << seconds;
    EXPECT_NE(date.jsonString().find(" s from 2001-01-01"), std::string::npos) << seconds;
  }
}
