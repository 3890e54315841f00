#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "platform/json.h"

namespace pelmar {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Each member as it is handed over, "key=value"; "none" behind them when it was no object.
std::vector<std::string> membersOf(std::string_view text) {
  std::vector<std::string> members;
  const bool isObject = forEachMember(text, [&](const std::string& key, const json& value) {
    members.push_back(key + '=' + compactJson(value));
  });
  if (!isObject) members.emplace_back("none");
  return members;
}

std::string nestedArrays(std::size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

TEST(ForEachMember, HandsOverEachMemberAsItStands) {
  EXPECT_THAT(
      membersOf(R"( { "b" : {"x": [1, {"y": 2}], "z": {}} , "a":[], "c\n":null,"":-1.50 } )"),
      ElementsAre(R"(b={"x":[1,{"y":2}],"z":{}})", "a=[]", "c\n=null", "=-1.5"));
}

TEST(ForEachMember, AnEmptyObjectHasNone) {
  EXPECT_THAT(membersOf("{}"), IsEmpty());
  EXPECT_THAT(membersOf("\r\n\t{ \n } "), IsEmpty());
  EXPECT_THAT(membersOf("\xEF\xBB\xBF{}"), IsEmpty());
}

TEST(ForEachMember, WhatSeparatesMembersCountsOutsideOfStringsOnly) {
  EXPECT_THAT(membersOf(R"({"},{": "},{", "\"}": "\\", "\\": "\\\"}", "[": [","]})"),
              ElementsAre(R"(},{="},{")", R"("}="\\")", R"(\="\\\"}")", R"([=[","])"));
}

TEST(ForEachMember, DuplicateKeysAreHandedOverOneAfterTheOther) {
  EXPECT_THAT(membersOf(R"({"a": 1, "b": {"c": 2, "c": 3}, "a": 4})"),
              ElementsAre("a=1", R"(b={"c":3})", "a=4"));
}

TEST(ForEachMember, WhatIsNoObjectHasNoneAndHandsOverNothing) {
  const std::string texts[] = {"",
                               " ",
                               "{",
                               "}",
                               "[]",
                               R"([{"a": 1}])",
                               "7",
                               "null",
                               R"("{}")",
                               R"({"a": 1)",
                               R"({"a": 1,})",
                               R"({"a": 1} x)",
                               R"({"a": 1}{})",
                               R"({,"a": 1})",
                               R"({"a": 1 "b": 2})",
                               R"({"a": 1, 2})",
                               R"({"a": 1, "b"})",
                               R"({"a": 1, "b": [}])",
                               R"({"a": 1, "b": 1e999})",
                               "{\"a\": 1, \"b\": \"\xFF\"}",
                               std::string("{\"a\": 1}\0", 9)};
  for (const std::string& text : texts) EXPECT_THAT(membersOf(text), ElementsAre("none")) << text;
}

TEST(ForEachMember, IntegersBeyond64BitsAreNoObstacle) {
  EXPECT_THAT(membersOf(R"({"b":[18446744073709551616],"a":{}})"),
              ElementsAre("a={}", "b=[1.8446744073709552e+19]"));
}

TEST(ForEachMember, TheWholeTextMayBeNestedUpToTheLimitAndNoDeeper) {
  EXPECT_THAT(membersOf(R"({"a":)" + nestedArrays(511) + "}"),
              ElementsAre("a=" + nestedArrays(511)));
  EXPECT_THAT(membersOf(R"({"b":1,"a":)" + nestedArrays(512) + "}"), ElementsAre("none"));
}

}  // namespace
}  // namespace pelmar
