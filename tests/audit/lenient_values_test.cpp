#include "audit/lenient_values.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

namespace pelmar {
namespace {

using nlohmann::json;

std::string summaryOf(const std::string& jsonText, std::size_t maxLen = 500) {
  const json value = json::parse(jsonText);
  return summarizeContent(&value, maxLen);
}

std::string cut(const json& text, std::size_t maxLen = 500) {
  return summarizeContent(&text, maxLen);
}

std::string repeated(const std::string& piece, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += piece;
  return text;
}

TEST(SummarizeContent, AbsentContentIsEmpty) { EXPECT_EQ(summarizeContent(nullptr, 500), ""); }

TEST(SummarizeContent, NullIsEmpty) { EXPECT_EQ(summaryOf("null"), ""); }

TEST(SummarizeContent, TextIsKeptUpToTheLimit) {
  EXPECT_EQ(cut(std::string(499, 'x')), std::string(499, 'x'));
  EXPECT_EQ(cut(std::string(500, 'x')), std::string(500, 'x'));
  EXPECT_EQ(cut(std::string(501, 'x')), std::string(500, 'x'));
}

TEST(SummarizeContent, LimitIsTheCallers) {
  EXPECT_EQ(cut("abc", 4), "abc");
  EXPECT_EQ(cut("abc", 3), "abc");
  EXPECT_EQ(cut("abc", 2), "ab");
  EXPECT_EQ(cut("abc", 0), "");
  EXPECT_EQ(cut("", 2), "");
}

TEST(SummarizeContent, TextOfAnArrayOfObjectsIsJoinedByLineFeeds) {
  EXPECT_EQ(summaryOf(R"([{"type": "text", "text": "a"}, {"type": "text", "text": "b"}])"), "a\nb");
}

TEST(SummarizeContent, ContentStandsInForATextThatIsNoString) {
  EXPECT_EQ(summaryOf(R"([{"content": "a"}, {"text": null, "content": "b"},
                          {"text": 1, "content": "c"}, {"text": "d", "content": "e"}])"),
            "a\nb\nc\nd");
}

TEST(SummarizeContent, ObjectsWithoutEitherAreLeftOutOfTheJoin) {
  EXPECT_EQ(summaryOf(R"([{"text": "a"}, {"type": "image"}, {"text": [1], "content": [2]}, {},
                          {"text": "b"}])"),
            "a\nb");
  EXPECT_EQ(summaryOf(R"([{"type": "image"}, {}])"), "");
}

TEST(SummarizeContent, EmptyTextsTakePartInTheJoin) {
  EXPECT_EQ(summaryOf(R"([{"text": ""}, {"text": "a"}, {"text": ""}])"), "\na\n");
  EXPECT_EQ(summaryOf(R"([{"text": ""}, {"text": ""}])"), "\n");
}

TEST(SummarizeContent, EmptyTextKeepsContentFromStandingIn) {
  EXPECT_EQ(summaryOf(R"([{"text": "", "content": "c"}])"), "");
}

TEST(SummarizeContent, EmptyArrayIsEmpty) { EXPECT_EQ(summaryOf("[]"), ""); }

TEST(SummarizeContent, JoinedTextsAreCutAsAWhole) {
  EXPECT_EQ(summaryOf(R"([{"text": "abc"}, {"text": "def"}])", 5), "abc\nd");
  EXPECT_EQ(summaryOf(R"([{"text": "abc"}, {"text": "def"}])", 4), "abc\n");
  EXPECT_EQ(summaryOf(R"([{"text": "abc"}, {"text": "def"}])", 3), "abc");
}

TEST(SummarizeContent, OtherValuesAreTheirCompactJson) {
  const char* values[] = {"12",   "1.5",    "true",           R"({"a":[1,"x"]})",
                          "[1]",  "[null]", R"(["a","b"])",   R"([{"text":"a"},"b"])",
                          "[[]]", "{}",     R"({"text":"a"})"};
  for (const char* value : values) EXPECT_EQ(summaryOf(value), value);
}

TEST(SummarizeContent, OtherValuesAreCutToo) {
  EXPECT_EQ(summaryOf(R"(["abc"])", 7), R"(["abc"])");
  EXPECT_EQ(summaryOf(R"(["abc"])", 6), R"(["abc")");
}

TEST(SummarizeContent, CountsUserPerceivedCharacters) {
  const struct {
    const char* name;
    std::string character;
  } rows[] = {
      {"two bytes", "é"},
      {"three bytes", "語"},
      {"beyond the basic plane", "😀"},
      {"combining mark", "e\u0301"},
      {"several marks", "e\u0301\u0323\u0308"},
      {"emoji family", "👨‍👩‍👧‍👦"},
      {"skin tone", "👍🏽"},
      {"flag", "🇩🇪"},
      {"keycap", "1\uFE0F\u20E3"},
      {"hangul syllable of jamo", "\u1112\u1161\u11AB"},
      {"CR LF", "\r\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(cut(repeated(row.character, 499)), repeated(row.character, 499)) << row.name;
    EXPECT_EQ(cut(repeated(row.character, 500)), repeated(row.character, 500)) << row.name;
    EXPECT_EQ(cut(repeated(row.character, 501)), repeated(row.character, 500)) << row.name;
  }
}

TEST(SummarizeContent, CutNeverSplitsTheCharacterAtTheLimit) {
  const std::string before(499, 'x');
  for (const std::string last :
       {"e\u0301", "👨‍👩‍👧‍👦", "🇩🇪", "\r\n", "👍🏽"}) {
    EXPECT_EQ(cut(before + last), before + last);
    EXPECT_EQ(cut(before + last + "y"), before + last);
    EXPECT_EQ(cut(before + "x" + last), before + "x");
  }
}

TEST(SummarizeContent, MarkBehindTheLimitBelongsToTheLastCharacter) {
  const std::string text(500, 'x');
  EXPECT_EQ(cut(text + "\u0301" + "y"), text + "\u0301");
}

TEST(SummarizeContent, LoneCarriageReturnsAndLineFeedsCountEach) {
  EXPECT_EQ(cut("\n\r\r\na", 1), "\n");
  EXPECT_EQ(cut("\n\r\r\na", 2), "\n\r");
  EXPECT_EQ(cut("\n\r\r\na", 3), "\n\r\r\n");
}

TEST(SummarizeContent, NulCountsAsACharacter) {
  EXPECT_EQ(cut(std::string("a\0bc", 4), 3), std::string("a\0b", 3));
}

std::int64_t countIn(const std::string& jsonText) {
  const json value = json::parse(jsonText);
  return intFrom(&value);
}

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

TEST(IntFrom, AbsentValueIsZero) { EXPECT_EQ(intFrom(nullptr), 0); }

TEST(IntFrom, NumbersAreTruncatedTowardZero) {
  const struct {
    const char* value;
    std::int64_t count;
  } rows[] = {
      {"0", 0},
      {"-0", 0},
      {"12", 12},
      {"-12", -12},
      {"50.0", 50},
      {"1e3", 1000},
      {"0.999", 0},
      {"-0.999", 0},
      {"1.5", 1},
      {"-1.5", -1},
      {"2.999", 2},
      {"-2.999", -2},
      {"9007199254740993", 9007199254740993},
      {"9223372036854774784.0", 9223372036854774784},
      {"9223372036854775806", kMost - 1},
      {"9223372036854775807", kMost},
      {"-9223372036854775807", kLeast + 1},
      {"-9223372036854775808", kLeast},
      {"-9223372036854775808.0", kLeast},
      {"-9.2e18", -9200000000000000000},
      {"9.2e18", 9200000000000000000},
  };
  for (const auto& row : rows) EXPECT_EQ(countIn(row.value), row.count) << row.value;
}

TEST(IntFrom, TextIsReadAsABase10Integer) {
  const struct {
    const char* text;
    std::int64_t count;
  } rows[] = {
      {"12", 12},
      {"+12", 12},
      {"-12", -12},
      {"0", 0},
      {"-0", 0},
      {"+0", 0},
      {"007", 7},
      {"+007", 7},
      {"9223372036854775807", kMost},
      {"+9223372036854775807", kMost},
      {"-9223372036854775808", kLeast},
      {"00000000000000000000000000000001", 1},
  };
  for (const auto& row : rows) {
    const json value = row.text;
    EXPECT_EQ(intFrom(&value), row.count) << row.text;
  }
}

TEST(IntFrom, TextThatIsNoIntegerOf64BitsIsZero) {
  for (const std::string text : {"",
                                 " 12",
                                 "12 ",
                                 "\t12",
                                 "12\n",
                                 "+",
                                 "-",
                                 "+-12",
                                 "-+12",
                                 "++12",
                                 "--12",
                                 "- 1",
                                 "1.0",
                                 "1e3",
                                 "0x10",
                                 "12a",
                                 "a12",
                                 "1,000",
                                 "1_000",
                                 "١٢",
                                 "inf",
                                 "nan",
                                 "9223372036854775808",
                                 "-9223372036854775809",
                                 "99999999999999999999"}) {
    const json value = text;
    EXPECT_EQ(intFrom(&value), 0) << text;
  }
  const json withNul = std::string("12\0", 3);
  EXPECT_EQ(intFrom(&withNul), 0);
}

TEST(IntFrom, AnythingElseIsZero) {
  for (const char* value : {"null", "true", "false", "[12]", R"({"a": 12})", "[]", "{}"}) {
    EXPECT_EQ(countIn(value), 0) << value;
  }
}

TEST(IntFrom, IntegerBelow64BitsIsTheDoubleNearestToIt) {
  EXPECT_EQ(countIn("-9223372036854775809"), kLeast);
}

TEST(IntFromDeathTest, NumberBeyond64BitsEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* value :
       {"9223372036854775808", "18446744073709551615", "18446744073709551616",
        "9223372036854775808.0", "9.3e18", "1e30", "-9223372036854777856", "-9.3e18", "-1e30"}) {
    EXPECT_DEATH(countIn(value), "Fatal error: a count .* beyond the 64-bit integer range")
        << value;
  }
}

TEST(IntFromDeathTest, NumberThatIsNotFiniteEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const double number : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    const json value = number;
    EXPECT_DEATH(intFrom(&value), "Fatal error: a count") << number;
  }
}

}  // namespace
}  // namespace pelmar
