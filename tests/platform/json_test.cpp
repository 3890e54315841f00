#include "platform/json.h"

#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

namespace pelmar {
namespace {

using namespace std::string_literals;
using ::testing::Eq;
using ::testing::Optional;

std::string repeated(const std::string& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

std::string around(const std::string& before, const std::string& inner, const std::string& behind) {
  std::string all = before;
  all += inner;
  all += behind;
  return all;
}

std::string parsedAndWritten(std::string_view text) {
  const auto value = parseJson(text);
  return value ? compactJson(*value) : "none";
}

TEST(ParseJson, TakesArraysNestedUpToTheLimitAndNoDeeper) {
  EXPECT_TRUE(parseJson(repeated("[", 512) + repeated("]", 512)));
  EXPECT_FALSE(parseJson(repeated("[", 513) + repeated("]", 513)));
}

TEST(ParseJson, TakesObjectsNestedUpToTheLimitAndNoDeeper) {
  EXPECT_TRUE(parseJson(repeated(R"({"a":)", 512) + "1" + repeated("}", 512)));
  EXPECT_FALSE(parseJson(repeated(R"({"a":)", 513) + "1" + repeated("}", 513)));
}

TEST(ParseJson, CountsArraysAndObjectsTogether) {
  EXPECT_TRUE(parseJson(repeated(R"([{"a":)", 256) + "1" + repeated("}]", 256)));
  EXPECT_FALSE(parseJson(around("[", repeated(R"([{"a":)", 256) + "1" + repeated("}]", 256), "]")));
}

TEST(ParseJson, CountsLevelsAndNotBrackets) {
  EXPECT_TRUE(parseJson(around("[", repeated("[],{},", 1000), "0]")));
  const std::string deepest = repeated("[", 511) + repeated("]", 511);
  EXPECT_TRUE(parseJson(around("[", around(deepest, ",", deepest), "]")));
  const std::string tooDeep = repeated("[", 512) + repeated("]", 512);
  EXPECT_FALSE(parseJson(around("[", around(deepest, ",", tooDeep), "]")));
}

TEST(ParseJson, DoesNotCountBracketsInsideStrings) {
  const std::string brackets = repeated("[{", 1000);
  EXPECT_THAT(parseJson(around("\"", brackets, "\"")), Optional(Eq(json(brackets))));
  EXPECT_THAT(parseJson(around(R"({"\"a)", brackets, R"(":"\\"})")),
              Optional(Eq(json{{"\"a" + brackets, "\\"}})));
}

TEST(ParseJson, CountsBracketsBehindAStringThatEndsInABackslash) {
  EXPECT_FALSE(parseJson(around(R"(["\\",)", repeated("[", 512), repeated("]", 513))));
  EXPECT_TRUE(parseJson(around(R"(["\\",)", repeated("[", 511), repeated("]", 512))));
}

TEST(ParseJson, RefusesUnbalancedTextOfAnyLength) {
  for (const auto* piece : {"[", "]", "{", "}", R"({"a":)", R"([{"a":[)"}) {
    for (const int count : {1, 512, 513, 200000}) {
      EXPECT_FALSE(parseJson(repeated(piece, count))) << piece << " x " << count;
    }
  }
  EXPECT_FALSE(parseJson(repeated("]", 1000) + repeated("[", 1000)));
}

// Beyond the lengths that readers are chosen by.
constexpr std::size_t kLengths[] = {1024 * 1024, 5 * 1024 * 1024};

struct Text {
  const char* text;
  const char* written;  // compact, or "none" when the text is refused
};

TEST(ParseJson, ReadsTheGrammarAndNothingBesideIt) {
  constexpr Text kTexts[] = {
      {"", "none"},
      {" ", "none"},
      {" \t\r\n{ } \n", "{}"},
      {R"({"a":1,"b":{"c":[true,false,null]}})", R"({"a":1,"b":{"c":[true,false,null]}})"},
      {"\"text\"", "\"text\""},
      {"{} x", "none"},
      {"{}{}", "none"},
      {"[1,]", "none"},
      {R"({"a":1,})", "none"},
      {"{a:1}", "none"},
      {"{'a':1}", "none"},
      {"// note\n{}", "none"},
      {"\"\t\"", "none"},
      {"\"\n\"", "none"},
      {R"("\x41")", "none"},
      {R"("\u0041\n\/\\\"")", R"("A\n/\\\"")"},
      {R"("\ud83d\ude00")", "\"\xF0\x9F\x98\x80\""},
      {R"("\ud83d")", "none"},
      {R"("\ude00")", "none"},
      {"True", "none"},
      {"NaN", "none"},
      {"Infinity", "none"},
      {"+1", "none"},
      {"01", "none"},
      {"1.", "none"},
      {".5", "none"},
      {"1e", "none"},
      {"0x10", "none"},
  };
  for (const auto& [text, written] : kTexts) {
    EXPECT_EQ(parsedAndWritten(text), written) << text;
    for (const std::size_t length : kLengths) {
      EXPECT_EQ(parsedAndWritten(text + std::string(length, ' ')), written) << text << length;
    }
  }
}

TEST(ParseJson, TakesTheLastOfDuplicateKeys) {
  EXPECT_EQ(parsedAndWritten(R"({"a":1,"b":2,"a":"last"})"), R"({"a":"last","b":2})");
  EXPECT_EQ(parsedAndWritten(R"({"a":{"x":1},"a":{}})"), R"({"a":{}})");
}

TEST(ParseJson, RefusesNulBytesButTakesTheirEscape) {
  EXPECT_FALSE(parseJson("{}\0"s));
  EXPECT_FALSE(parseJson("\0{}"s));
  EXPECT_FALSE(parseJson("{}\0garbage"s));
  EXPECT_FALSE(parseJson("\"a\0b\""s));
  EXPECT_THAT(parseJson(R"("a\u0000b")"), Optional(Eq(json("a\0b"s))));
}

TEST(ParseJson, RefusesIllFormedUtf8) {
  for (const auto* bytes : {"\x80", "\xC3", "\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF0\x9F\x98",
                            "\xF4\x90\x80\x80", "\xFF"}) {
    EXPECT_FALSE(parseJson(around("\"", bytes, "\"")));
    EXPECT_FALSE(parseJson(around("{\"", bytes, "\":1}")));
  }
  EXPECT_TRUE(parseJson("\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""));
}

TEST(ParseJson, PassesOverAByteOrderMarkAtTheStartOnly) {
  EXPECT_EQ(parsedAndWritten("\xEF\xBB\xBF{}"), "{}");
  EXPECT_EQ(parsedAndWritten("{}\xEF\xBB\xBF"), "none");
  EXPECT_EQ(parsedAndWritten(" \xEF\xBB\xBF{}"), "none");
  EXPECT_EQ(parsedAndWritten("\xEF\xBB{}"), "none");
}

TEST(ParseJson, KeepsNumbersAsTheyAre) {
  constexpr Text kNumbers[] = {
      {"0", "0"},
      {"50", "50"},
      {"50.0", "50.0"},
      {"-1", "-1"},
      {"-0.0", "-0.0"},
      {"9007199254740991", "9007199254740991"},
      {"9007199254740992", "9007199254740992"},
      {"9007199254740993", "9007199254740993"},
      {"9223372036854775807", "9223372036854775807"},
      {"9223372036854775808", "9223372036854775808"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"18446744073709551615", "18446744073709551615"},
      {"0.1", "0.1"},
      {"0.30000000000000004", "0.30000000000000004"},
      {"1e400", "none"},
      {"-1e400", "none"},
      {"[1,1e400]", "none"},
  };
  for (const auto& [text, written] : kNumbers) {
    EXPECT_EQ(parsedAndWritten(text), written) << text;
    for (const std::size_t length : kLengths) {
      EXPECT_EQ(parsedAndWritten(text + std::string(length, ' ')), written) << text << length;
    }
  }
}

TEST(ParseJson, MakesDoublesOfIntegersBeyond64Bits) {
  EXPECT_THAT(parseJson("18446744073709551616"), Optional(Eq(json(0x1p64))));
  EXPECT_THAT(parseJson("-9223372036854775809"), Optional(Eq(json(-0x1p63))));
  EXPECT_THAT(parseJson("12345678901234567890123"), Optional(Eq(json(12345678901234567890123.0))));
  EXPECT_TRUE(parseJson("[99999999999999999999]")->at(0).is_number_float());
}

void expectSurvives(double number) {
  char text[64];
  std::snprintf(text, sizeof text, "%.17g", number);
  const auto once = parseJson(text);
  ASSERT_TRUE(once) << text;
  const auto again = parseJson(compactJson(*once));
  ASSERT_TRUE(again) << text;
  EXPECT_EQ(std::bit_cast<std::uint64_t>(again->get<double>()),
            std::bit_cast<std::uint64_t>(number))
      << text;
}

TEST(ParseJson, WritesBackDoublesToTheLastDigit) {
  for (const double number :
       {0.1, 1.0 / 3, 5e-324, 2.2250738585072009e-308, 2.2250738585072014e-308,
        1.7976931348623157e308, 123456.789012345678, 9007199254740993.5, 4.35, 1e23}) {
    expectSurvives(number);
    expectSurvives(-number);
  }
  std::mt19937_64 bits(20260304);  // NOLINT(cert-msc51-cpp): the same numbers each time
  for (int i = 0; i < 1000; ++i) {
    const auto number = std::bit_cast<double>(bits());
    if (std::isfinite(number) && std::trunc(number) != number) expectSurvives(number);
  }
}

TEST(ParseJsonObject, TakesObjectsOnly) {
  EXPECT_THAT(parseJsonObject(R"({"a":1})"), Optional(Eq(json{{"a", 1}})));
  for (const auto* text : {"[]", "[{}]", "\"{}\"", "1", "true", "null", "", "{"}) {
    EXPECT_FALSE(parseJsonObject(text)) << text;
  }
}

TEST(StringAt, FindsStringsOnly) {
  const json object = {{"text", "value"}, {"empty", ""}, {"number", 1}, {"null", nullptr}};
  ASSERT_NE(stringAt(object, "text"), nullptr);
  EXPECT_EQ(*stringAt(object, "text"), "value");
  ASSERT_NE(stringAt(object, "empty"), nullptr);
  for (const auto* key : {"number", "null", "missing", "Text"}) {
    EXPECT_EQ(stringAt(object, key), nullptr) << key;
    EXPECT_EQ(textAt(object, key), "") << key;
  }
  EXPECT_EQ(textAt(object, "text"), "value");
  for (const json& other : {json::array({"text"}), json("text"), json(1), json()}) {
    EXPECT_EQ(stringAt(other, "text"), nullptr) << other;
  }
}

TEST(TextInJsonObject, IsWhatTheValueHasThere) {
  for (const std::string& text : {
           R"({"key":"text"})"s,
           R"({"a":{"key":"inner"},"key":"outer","z":["key","list"]})"s,
           R"({"key":"first","key":"last"})"s,
           R"({"key":"first","key":1})"s,
           R"({"\u006bey":"\u0074ext\/\ud83d\ude00\u0000"})"s,
           R"({"key":"text","beyond 64 bits":18446744073709551616})"s,
           "\xEF\xBB\xBF{\"key\":\"text\"}"s,
           R"({"key":""})"s,
           R"({"key":["text"]})"s,
           R"({"Key":"text"})"s,
           R"(["key"])"s,
           R"("key")"s,
           R"({"key":"text"}})"s,
           R"({"key":"text","number":1e400})"s,
           "{\"key\":\"text\",\"\xFF\":1}"s,
           "{\"key\":\"text\"}\0"s,
           R"({"key":"text","deep":)" + repeated("[", 511) + repeated("]", 511) + "}",
           R"({"key":"text","deep":)" + repeated("[", 512) + repeated("]", 512) + "}",
           ""s,
       }) {
    const auto object = parseJsonObject(text);
    EXPECT_EQ(textInJsonObject(text, "key"), object ? textAt(*object, "key") : "") << text;
    for (const std::size_t length : kLengths) {
      EXPECT_EQ(textInJsonObject(text + std::string(length, ' '), "key"),
                textInJsonObject(text, "key"))
          << text << length;
    }
  }
  EXPECT_EQ(textInJsonObject(R"({"a":1,"key":"text"})", "key"), "text");
}

TEST(ExactInteger, TakesNumbersWhoseValueIsASigned64BitInteger) {
  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  const struct {
    const char* text;
    std::optional<std::int64_t> integer;
  } kNumbers[] = {
      {"0", 0},
      {"50", 50},
      {"50.0", 50},
      {"5e1", 50},
      {"-0.0", 0},
      {"50.5", std::nullopt},
      {"-0.5", std::nullopt},
      {"5e-324", std::nullopt},
      {"9007199254740991", 9007199254740991},
      {"9007199254740993", 9007199254740993},
      {"-9007199254740993", -9007199254740993},
      {"9007199254740991.0", 9007199254740991},
      {"9223372036854775807", kMost},
      {"9223372036854775808", std::nullopt},
      {"18446744073709551615", std::nullopt},
      {"18446744073709551616", std::nullopt},
      {"-9223372036854775808", kLeast},
      {"-9223372036854775808.0", kLeast},
      {"9223372036854774784.0", 9223372036854774784},
      {"9223372036854775808.0", std::nullopt},
      {"-9223372036854777856.0", std::nullopt},
      {"1e300", std::nullopt},
  };
  for (const auto& [text, integer] : kNumbers) {
    EXPECT_EQ(exactInteger(*parseJson(text)), integer) << text;
  }
}

TEST(ExactInteger, TakesNoOtherType) {
  for (const auto* text : {"\"50\"", "true", "null", "[50]", "{}"}) {
    EXPECT_EQ(exactInteger(*parseJson(text)), std::nullopt) << text;
  }
  EXPECT_EQ(exactInteger(json(std::nan(""))), std::nullopt);
  EXPECT_EQ(exactInteger(json(HUGE_VAL)), std::nullopt);
}

TEST(WrittenJson, IsCompactWithSortedKeys) {
  EXPECT_EQ(compactJson(*parseJson(R"({ "b" : [1, 2], "a" : {"d": 1, "c": "x y"}, "B": "" })")),
            R"({"B":"","a":{"c":"x y","d":1},"b":[1,2]})");
}

TEST(WrittenJson, EscapesSlashesWhereAsked) {
  const json value = {{"/k/", {"a/b", "\\/", "no"}}};
  EXPECT_EQ(compactJson(value), R"({"/k/":["a/b","\\/","no"]})");
  EXPECT_EQ(compactJsonEscapingSlashes(value), R"({"\/k\/":["a\/b","\\\/","no"]})");
  EXPECT_EQ(*parseJson(compactJsonEscapingSlashes(value)), value);
  EXPECT_EQ(indentedJsonEscapingSlashes(json{{"b", "x/y"}, {"a", json::array({1})}}),
            "{\n  \"a\": [\n    1\n  ],\n  \"b\": \"x\\/y\"\n}");
}

TEST(WrittenJson, EscapesEverySlashWhereverItStands) {
  const struct {
    const char* text;
    const char* written;
  } rows[] = {{"", R"("")"},
              {"a", R"("a")"},
              {"/", R"("\/")"},
              {"//", R"("\/\/")"},
              {"/a//b/", R"("\/a\/\/b\/")"},
              {"\\/", R"("\\\/")"}};
  for (const auto& row : rows) {
    EXPECT_EQ(compactJsonEscapingSlashes(row.text), row.written);
    EXPECT_EQ(indentedJsonEscapingSlashes(row.text), row.written);
  }
}

TEST(WrittenJson, ReplacesIllFormedUtf8) {
  const json value = {{"a\xFFz", "\xE2\x82"}};
  EXPECT_EQ(compactJson(value), "{\"a\xEF\xBF\xBDz\":\"\xEF\xBF\xBD\"}");
  EXPECT_EQ(compactJsonEscapingSlashes(value), "{\"a\xEF\xBF\xBDz\":\"\xEF\xBF\xBD\"}");
  EXPECT_EQ(indentedJsonEscapingSlashes(value), "{\n  \"a\xEF\xBF\xBDz\": \"\xEF\xBF\xBD\"\n}");
}

}  // namespace
}  // namespace pelmar
