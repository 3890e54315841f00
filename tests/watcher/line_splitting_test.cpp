#include "watcher/line_splitting.h"

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <vector>

namespace pelmar {
namespace {

using Lines = std::vector<std::string>;

struct Split {
  Lines lines;
  std::string partial;
};

Split split(std::string_view text) {
  Split result;
  result.partial = splitLinesKeepPartial(text, [&](std::string_view line) {
    result.lines.emplace_back(line);
    return true;
  });
  return result;
}

TEST(SplitLines, LinesEndAtLineFeedsAndTheRestIsPartial) {
  const struct {
    std::string text;
    Lines lines;
    std::string partial;
  } rows[] = {
      {"a\nb\n", {"a", "b"}, ""}, {"a\nb", {"a"}, "b"},
      {"\n\n", {"", ""}, ""},     {"\n", {""}, ""},
      {"\na", {""}, "a"},         {"a\n\n\nb\n\n", {"a", "", "", "b", ""}, ""},
      {"a\n \t", {"a"}, " \t"},
  };
  for (const auto& row : rows) {
    const Split result = split(row.text);
    EXPECT_EQ(result.lines, row.lines) << row.text;
    EXPECT_EQ(result.partial, row.partial) << row.text;
  }
}

TEST(SplitLines, TextWithoutLineFeedIsAllPartial) {
  for (const std::string text : {"", "a", "a b\tc", "{\"a\": 1}"}) {
    const Split result = split(text);
    EXPECT_EQ(result.lines, Lines{}) << text;
    EXPECT_EQ(result.partial, text);
  }
}

TEST(SplitLines, NothingButALineFeedSeparates) {
  // Vertical tab, form feed, next line, line separator, paragraph separator, NUL.
  const std::string stranger("a\vb\fc\u0085d\u2028e\u2029f\0g", 18);
  EXPECT_EQ(split(stranger + "\n").lines, Lines{stranger});
  EXPECT_EQ(split(stranger).partial, stranger);
}

TEST(SplitLines, CarriageReturnsStayInTheirLine) {
  const Split result = split("a\r\n\r\n\rb\rc\nd\r");
  EXPECT_EQ(result.lines, (Lines{"a\r", "\r", "\rb\rc"}));
  EXPECT_EQ(result.partial, "d\r");
}

TEST(SplitLines, BytesThatAreNotUtf8AreKept) {
  const Split result = split("\xFF\n\xC3\n\x80\xE2\x82");
  EXPECT_EQ(result.lines, (Lines{"\xFF", "\xC3"}));
  EXPECT_EQ(result.partial, "\x80\xE2\x82");
}

TEST(SplitLines, NoLineIsHandedOutBehindARefusedOne) {
  Lines lines;
  const std::string_view partial = splitLinesKeepPartial("a\nb\nc\nd", [&](std::string_view line) {
    lines.emplace_back(line);
    return line != "b";
  });
  EXPECT_EQ(lines, (Lines{"a", "b"}));
  EXPECT_EQ(partial, "d");
}

TEST(SplitLines, LinesAndPartialPointIntoTheText) {
  const std::string text = "ab\ncd";
  const std::string_view partial = splitLinesKeepPartial(text, [&](std::string_view line) {
    EXPECT_EQ(line.data(), text.data());
    return true;
  });
  EXPECT_EQ(partial.data(), text.data() + 3);
}

}  // namespace
}  // namespace pelmar
