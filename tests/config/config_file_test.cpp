#include "config/config_file.h"

#include <gtest/gtest.h>

namespace pelmar {
namespace {

TEST(ParseConfig, ReadsSectionsOfKeysAndValues) {
  EXPECT_EQ(parseConfig("[default]\n"
                        "api_url = https://example.com\n"
                        "api_key=abc\n"
                        "\n"
                        "[tandem]\n"
                        "agent_slug = agent\n"),
            (ConfigSections{{"default", {{"api_url", "https://example.com"}, {"api_key", "abc"}}},
                            {"tandem", {{"agent_slug", "agent"}}}}));
}

TEST(ParseConfig, FindsNothingInAnEmptyText) {
  EXPECT_EQ(parseConfig(""), ConfigSections{});
  EXPECT_EQ(parseConfig("\n\n \t\n"), ConfigSections{});
}

TEST(ParseConfig, ReadsALastLineWithoutALineFeed) {
  EXPECT_EQ(parseConfig("[a]\nk=v"), (ConfigSections{{"a", {{"k", "v"}}}}));
  EXPECT_EQ(parseConfig("[a]"), (ConfigSections{{"a", {}}}));
}

TEST(ParseConfig, TakesCommentsForWholeLinesOnly) {
  EXPECT_EQ(parseConfig("# [hidden]\n"
                        "[a]\n"
                        "#k=v\n"
                        " \t# k = v\n"
                        "x = 1 # one\n"
                        "y=#\n"
                        "; z = 3\n"
                        "n#m = 4\n"),
            (ConfigSections{{"a", {{"x", "1 # one"}, {"y", "#"}, {"; z", "3"}, {"n#m", "4"}}}}));
}

TEST(ParseConfig, TrimsBlanksOfLinesNamesKeysAndValues) {
  EXPECT_EQ(parseConfig(" \t[ \tdefault\t ] \n"
                        "\t key \t = \t a  b \t\n"),
            (ConfigSections{{"default", {{"key", "a  b"}}}}));
}

TEST(ParseConfig, TakesUnicodeSpaceSeparatorsForBlanks) {
  EXPECT_EQ(parseConfig("\xE3\x80\x80[\xC2\xA0"
                        "a\xE1\x9A\x80]\xE2\x80\x83\n"
                        "\xE3\x80\x80k\xE3\x80\x80=\xE3\x80\x80v\xE3\x80\x80w\xE3\x80\x80\n"
                        "\xE3\x80\x80# comment = 1\n"),
            (ConfigSections{{"a", {{"k", "v\xE3\x80\x80w"}}}}));
}

TEST(ParseConfig, TakesNoInvisibleCharacterForABlank) {
  EXPECT_EQ(parseConfig("[a]\n\xE2\x80\x8Bk = v\xE2\x80\x8B\n"),
            (ConfigSections{{"a", {{"\xE2\x80\x8Bk", "v\xE2\x80\x8B"}}}}));
}

TEST(ParseConfig, NamesASectionByWhatLiesBetweenTheBrackets) {
  EXPECT_EQ(parseConfig("[]\nk=0\n"
                        "[ ]\nl=1\n"
                        "[a b]\nk=2\n"
                        "[[c]]\nk=3\n"
                        "[d=e]\nk=4\n"
                        "[\"f\"]\nk=5\n"),
            (ConfigSections{{"", {{"l", "1"}}},
                            {"a b", {{"k", "2"}}},
                            {"[c]", {{"k", "3"}}},
                            {"d=e", {{"k", "4"}}},
                            {"\"f\"", {{"k", "5"}}}}));
}

TEST(ParseConfig, TakesHalfAHeaderForAKeyLine) {
  EXPECT_EQ(parseConfig("[a]\n"
                        "[b\n"
                        "[c = 1\n"
                        "c] = 2\n"
                        "[d] # = 3\n"
                        "[\n"
                        "]\n"),
            (ConfigSections{{"a", {{"[c", "1"}, {"c]", "2"}, {"[d] #", "3"}}}}));
}

TEST(ParseConfig, EmptiesASectionAtItsSecondHeader) {
  EXPECT_EQ(parseConfig("[default]\nold=1\nboth=1\n"
                        "[other]\nk=v\n"
                        "[default]\nboth=2\nnew=2\n"),
            (ConfigSections{{"default", {{"both", "2"}, {"new", "2"}}}, {"other", {{"k", "v"}}}}));
  EXPECT_EQ(parseConfig("[default]\nk=v\n[default]\n"), (ConfigSections{{"default", {}}}));
}

TEST(ParseConfig, PassesOverKeysAboveTheFirstHeader) {
  EXPECT_EQ(parseConfig("k=v\n= \n[a]\nl=w\n"), (ConfigSections{{"a", {{"l", "w"}}}}));
  EXPECT_EQ(parseConfig("k=v\n"), ConfigSections{});
}

TEST(ParseConfig, PassesOverLinesWithoutAnEqualsSign) {
  EXPECT_EQ(parseConfig("[a]\nkey value\nkey: value\nk=v\n"),
            (ConfigSections{{"a", {{"k", "v"}}}}));
}

TEST(ParseConfig, SplitsAtTheFirstEqualsSign) {
  EXPECT_EQ(parseConfig("[a]\nurl = http://h/?x=1&y=2\nk==v\n"),
            (ConfigSections{{"a", {{"url", "http://h/?x=1&y=2"}, {"k", "=v"}}}}));
}

TEST(ParseConfig, StoresEmptyKeysAndEmptyValues) {
  EXPECT_EQ(parseConfig("[a]\nk =\n= v\n"), (ConfigSections{{"a", {{"k", ""}, {"", "v"}}}}));
  EXPECT_EQ(parseConfig("[a]\n=\n"), (ConfigSections{{"a", {{"", ""}}}}));
}

TEST(ParseConfig, KeepsTheLastOfRepeatedKeys) {
  EXPECT_EQ(parseConfig("[a]\nk=1\nk=2\n"), (ConfigSections{{"a", {{"k", "2"}}}}));
  EXPECT_EQ(parseConfig("[a]\nk=1\nk=\n"), (ConfigSections{{"a", {{"k", ""}}}}));
}

TEST(ParseConfig, TakesDoubleQuotesOffTheEndsOfAValue) {
  const struct {
    const char* written;
    const char* value;
  } kValues[] = {
      {R"("v")", "v"},        {R"("v)", "v"},
      {R"(v")", "v"},         {R"(""v""")", "v"},
      {R"("a"b")", R"(a"b)"}, {R"(" v ")", " v "},
      {R"("")", ""},          {R"(")", ""},
      {R"("""")", ""},        {R"('v')", "'v'"},
      {R"("'v'")", "'v'"},    {R"('"v"')", R"('"v"')"},
      {R"( "v" )", "v"},      {R"("v" # x)", R"(v" # x)"},
      {R"("a\n")", R"(a\n)"},
  };
  for (const auto& [written, value] : kValues) {
    EXPECT_EQ(parseConfig(std::string("[a]\nk=") + written + "\n"),
              (ConfigSections{{"a", {{"k", value}}}}))
        << written;
  }
}

TEST(ParseConfig, LeavesDoubleQuotesOfKeys) {
  EXPECT_EQ(parseConfig("[a]\n\"k\" = v\n"), (ConfigSections{{"a", {{"\"k\"", "v"}}}}));
}

TEST(ParseConfig, TellsUpperFromLowerCase) {
  EXPECT_EQ(parseConfig("[A]\nK=1\n[a]\nk=2\nK=3\n"),
            (ConfigSections{{"A", {{"K", "1"}}}, {"a", {{"k", "2"}, {"K", "3"}}}}));
}

TEST(ParseConfig, TakesNoContinuationLines) {
  EXPECT_EQ(parseConfig("[a]\nk = v\\\n  w = x\n"),
            (ConfigSections{{"a", {{"k", "v\\"}, {"w", "x"}}}}));
}

TEST(ParseConfig, TakesATextOfCrLfLineEndsForOneLine) {
  EXPECT_EQ(parseConfig("[default]\r\napi_url = u\r\napi_key = k\r\n"), ConfigSections{});
  EXPECT_EQ(parseConfig("[a]\nk = v\r\nl = w\nm = x\n"),
            (ConfigSections{{"a", {{"k", "v\r\nl = w"}, {"m", "x"}}}}));
  EXPECT_EQ(parseConfig("[a]\nk = v\r\r\nl = w\n"),
            (ConfigSections{{"a", {{"k", "v\r\r\nl = w"}}}}));
}

TEST(ParseConfig, KeepsALoneCarriageReturnInItsLine) {
  EXPECT_EQ(parseConfig("[a]\nk = v\rl = w\n\rm = x\n"),
            (ConfigSections{{"a", {{"k", "v\rl = w"}, {"\rm", "x"}}}}));
}

TEST(ParseConfig, BreaksLinesAtLineFeedsOnly) {
  EXPECT_EQ(parseConfig("[a]\nk = v\vl\f\xC2\x85m\xE2\x80\xA8n\n"),
            (ConfigSections{{"a", {{"k", "v\vl\f\xC2\x85m\xE2\x80\xA8n"}}}}));
}

}  // namespace
}  // namespace pelmar
