// The kinds that are read from the line's "message": what the user said and what the model
// answered.

#include <gmock/gmock.h>

#include <string>

#include "tests/audit/parsed_line.h"

namespace pelmar {
namespace {

using test::compact;
using test::eventsOf;
using test::kindsAndPayloads;

std::string userLine(const std::string& content) {
  return R"({"type": "user", "message": {"content": )" + content + "}}";
}

std::string assistantLine(const std::string& content) {
  return R"({"type": "assistant", "message": {"content": )" + content + "}}";
}

std::string usageLine(const std::string& usage) {
  return R"({"type": "assistant", "message": {"usage": )" + usage + "}}";
}

std::string textOf(const std::string& line) { return eventsOf(line).at(0).payload["text"]; }

std::string usageOf(const std::string& line) {
  return eventsOf(line).at(0).payload["usage"].dump();
}

TEST(AuditParser, UserLineWithTextYieldsUserMessage) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"(" hello\n")")),
            compact(R"([{"user_message": {"text": " hello\n"}}])"));
}

TEST(AuditParser, UserMessageIsNotShortened) {
  const std::string text(100'000, 'x');
  EXPECT_EQ(textOf(userLine('"' + text + '"')), text);
}

TEST(AuditParser, UserMessageOfOneCharacterIsKept) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"("\u0000")")),
            compact(R"([{"user_message": {"text": "\u0000"}}])"));
}

TEST(AuditParser, UserLineWithEmptyTextYieldsNoEvents) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"("")")), "[]");
}

TEST(AuditParser, UserLineWithEmptyArrayYieldsNoEvents) {
  EXPECT_EQ(kindsAndPayloads(userLine("[]")), "[]");
}

TEST(AuditParser, UserLineWithoutContentYieldsNoEvents) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "user", "message": {}})"), "[]");
  EXPECT_EQ(kindsAndPayloads(R"({"type": "user"})"), "[]");
}

TEST(AuditParser, UserLineWithContentOfAnotherTypeYieldsNoEvents) {
  for (const char* content : {"null", "1", "true", R"({"type": "tool_result"})"}) {
    EXPECT_EQ(kindsAndPayloads(userLine(content)), "[]") << content;
  }
}

TEST(AuditParser, UserLineWhoseMessageIsNoObjectYieldsNoEvents) {
  for (const char* message : {R"("hello")", "null", R"([{"content": "hello"}])"}) {
    const std::string line = std::string(R"({"type": "user", "message": )") + message + "}";
    EXPECT_EQ(kindsAndPayloads(line), "[]") << message;
  }
}

TEST(AuditParser, UserLineDoesNotReadTopLevelContent) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "user", "content": "hello", "message": {}})"), "[]");
}

TEST(AuditParser, UserLineSubtypeIsIgnored) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "user", "subtype": "init", "message": {"content": "x"}})"),
            compact(R"([{"user_message": {"text": "x"}}])"));
}

TEST(AuditParser, UserLineYieldsOneToolResultABlockInBlockOrder) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"([
                {"type": "tool_result", "tool_use_id": "t2", "is_error": true, "content": "no"},
                {"type": "text", "text": "and this"},
                {"type": "tool_result", "tool_use_id": "t1", "content": "yes"}])")),
            compact(R"([
                {"tool_result": {"tool_use_id": "t2", "is_error": true, "content": "no"}},
                {"tool_result": {"tool_use_id": "t1", "is_error": false, "content": "yes"}}])"));
}

TEST(AuditParser, UserTextBlocksYieldNoUserMessage) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"([{"type": "text", "text": "a"}, {"type": "image"}])")),
            "[]");
}

TEST(AuditParser, UserBlocksWithoutAStringTypeYieldNothing) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"([{"tool_use_id": "t"}, {"type": ["tool_result"]},
                                          {"type": "Tool_result"}, {}])")),
            "[]");
}

TEST(AuditParser, UserArrayThatHoldsMoreThanObjectsYieldsNoEvents) {
  for (const char* stranger : {"null", "1", R"("text")", "[]"}) {
    const std::string content =
        std::string(R"([{"type": "tool_result", "tool_use_id": "t"}, )") + stranger + "]";
    EXPECT_EQ(kindsAndPayloads(userLine(content)), "[]") << content;
  }
}

TEST(AuditParser, ToolResultWithNothingElseHasDefaults) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"([{"type": "tool_result"}])")),
            compact(R"([{"tool_result": {"tool_use_id": "", "is_error": false, "content": ""}}])"));
}

TEST(AuditParser, ToolResultIdComesFromToolUseIdAndNotFromId) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"([{"type": "tool_result", "id": "x"}])")),
            compact(R"([{"tool_result": {"tool_use_id": "", "is_error": false, "content": ""}}])"));
}

TEST(AuditParser, ToolResultErrorMarkThatIsNoBooleanIsFalse) {
  for (const char* mark : {"null", "1", R"("true")"}) {
    const std::string content =
        std::string(R"([{"type": "tool_result", "is_error": )") + mark + "}]";
    EXPECT_EQ(eventsOf(userLine(content)).at(0).payload["is_error"].dump(), "false") << mark;
  }
}

TEST(AuditParser, ToolResultContentOfTwoTextBlocksIsJoinedByALineFeed) {
  EXPECT_EQ(kindsAndPayloads(userLine(R"([{"type": "tool_result", "tool_use_id": "t", "content": [
                {"type": "text", "text": "a"}, {"type": "text", "text": "b"}]}])")),
            compact(R"([{"tool_result": {"tool_use_id": "t", "is_error": false,
                                         "content": "a\nb"}}])"));
}

TEST(AuditParser, ToolResultContentIsCutTo500Characters) {
  for (const std::size_t length : {499U, 500U, 501U, 600U}) {
    const std::string text(length, 'x');
    const auto events =
        eventsOf(userLine(R"([{"type": "tool_result", "content": ")" + text + R"("}])"));
    EXPECT_EQ(events.at(0).payload["content"], text.substr(0, 500));
  }
}

TEST(AuditParser, AssistantLineYieldsAssistantThenItsToolUsesInOrder) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "assistant", "message": {"id": "msg", "model": "m",
                "content": [
                  {"type": "tool_use", "id": "t1", "name": "Read", "input": {"file": "f"}},
                  {"type": "text", "text": ""},
                  {"type": "text", "text": "answer"},
                  {"type": "tool_use", "id": "t2", "name": "Bash"}],
                "usage": {"input_tokens": 1, "output_tokens": 2,
                          "cache_creation_input_tokens": 3, "cache_read_input_tokens": 4,
                          "service_tier": "standard"}}})"),
            compact(R"([
                {"assistant": {"message_id": "msg", "model": "m", "text": "answer",
                  "tool_uses": [
                    {"tool_use_id": "t1", "tool_name": "Read", "tool_input": {"file": "f"}},
                    {"tool_use_id": "t2", "tool_name": "Bash", "tool_input": {}}],
                  "usage": {"input_tokens": 1, "output_tokens": 2,
                            "cache_creation_input_tokens": 3, "cache_read_input_tokens": 4}}},
                {"tool_use": {"tool_use_id": "t1", "tool_name": "Read",
                  "tool_input": {"file": "f"}, "model": "m", "message_id": "msg"}},
                {"tool_use": {"tool_use_id": "t2", "tool_name": "Bash",
                  "tool_input": {}, "model": "m", "message_id": "msg"}}])"));
}

constexpr const char* kEmptyAssistant = R"([{"assistant": {"message_id": "", "model": "",
    "text": "", "tool_uses": [], "usage": {}}}])";

TEST(AuditParser, AssistantLineWithNothingInItStillYieldsAssistant) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "assistant"})"), compact(kEmptyAssistant));
  EXPECT_EQ(kindsAndPayloads(R"({"type": "assistant", "message": {}})"), compact(kEmptyAssistant));
}

TEST(AuditParser, AssistantLineWhoseMessageIsNoObjectYieldsAnEmptyAssistant) {
  for (const char* message : {"null", R"("answer")", "[]"}) {
    const std::string line = std::string(R"({"type": "assistant", "message": )") + message + "}";
    EXPECT_EQ(kindsAndPayloads(line), compact(kEmptyAssistant)) << message;
  }
}

TEST(AuditParser, AssistantLineReadsInsideTheMessageOnly) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "assistant", "subtype": "init", "id": "x", "model": "m",
                                 "usage": {"input_tokens": 1},
                                 "content": [{"type": "text", "text": "a"}], "message": {}})"),
            compact(kEmptyAssistant));
}

TEST(AuditParser, AssistantTextsOfAnotherTypeAreEmpty) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "assistant", "message": {"id": 1, "model": null}})"),
            compact(kEmptyAssistant));
}

TEST(AuditParser, AssistantContentThatIsNoArrayOfObjectsCountsAsEmpty) {
  for (const char* content :
       {R"("answer")", "null", R"({"type": "text", "text": "a"})",
        R"([{"type": "text", "text": "a"}, "b"])", R"([{"type": "tool_use"}, null])"}) {
    EXPECT_EQ(kindsAndPayloads(assistantLine(content)), compact(kEmptyAssistant)) << content;
  }
}

TEST(AuditParser, AssistantTextsAreJoinedByOneLineFeedWithoutTheEmptyOnes) {
  const struct {
    const char* content;
    const char* text;
  } rows[] = {
      {R"([{"type": "text", "text": "a"}, {"type": "text", "text": "b"}])", "a\nb"},
      {R"([{"type": "text", "text": ""}, {"type": "text", "text": "b"}])", "b"},
      {R"([{"type": "text", "text": "a"}, {"type": "text", "text": ""}])", "a"},
      {R"([{"type": "text", "text": "a"}, {"type": "text", "text": ""},
           {"type": "text", "text": "c"}])",
       "a\nc"},
      {R"([{"type": "text", "text": "a\n"}, {"type": "text", "text": "\n"}])", "a\n\n\n"},
      {R"([{"type": "text", "text": " "}, {"type": "text", "text": " "}])", " \n "},
      {R"([{"type": "text", "text": ""}])", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(textOf(assistantLine(row.content)), row.text);
}

TEST(AuditParser, AssistantBlocksOfOtherTypesAreIgnored) {
  EXPECT_EQ(kindsAndPayloads(assistantLine(R"([
                {"type": "thinking", "text": "hm"}, {"text": "untyped"}, {"type": 1, "text": "x"},
                {"type": "text", "text": 1}, {"type": "text", "content": "c"}, {"type": "text"},
                {"type": "tool_result", "tool_use_id": "t"}, {"type": "Tool_use"}])")),
            compact(kEmptyAssistant));
}

TEST(AuditParser, AssistantTextIsNotShortened) {
  const std::string text(10'000, 'x');
  EXPECT_EQ(textOf(assistantLine(R"([{"type": "text", "text": ")" + text + R"("}])")), text);
}

TEST(AuditParser, ToolUseWithNothingElseHasDefaults) {
  EXPECT_EQ(kindsAndPayloads(assistantLine(R"([{"type": "tool_use", "id": 1, "name": null}])")),
            compact(R"([
                {"assistant": {"message_id": "", "model": "", "text": "", "usage": {},
                  "tool_uses": [{"tool_use_id": "", "tool_name": "", "tool_input": {}}]}},
                {"tool_use": {"tool_use_id": "", "tool_name": "", "tool_input": {}, "model": "",
                              "message_id": ""}}])"));
}

TEST(AuditParser, ToolUseKeepsInputOfAnyType) {
  for (const char* input : {"null", "[]", "1.0", "true", R"("ls")"}) {
    const auto events =
        eventsOf(assistantLine(std::string(R"([{"type": "tool_use", "input": )") + input + "}]"));
    EXPECT_EQ(events.at(0).payload["tool_uses"][0]["tool_input"].dump(), input);
    EXPECT_EQ(events.at(1).payload["tool_input"].dump(), input);
  }
}

TEST(AuditParser, ToolUseDoesNotReadTheKeysOfAPermission) {
  const auto events = eventsOf(assistantLine(
      R"([{"type": "tool_use", "tool_input": {"a": 1}, "tool_name": "n", "tool_use_id": "t"}])"));
  EXPECT_EQ(events.at(0).payload["tool_uses"].dump(),
            compact(R"([{"tool_use_id": "", "tool_name": "", "tool_input": {}}])"));
}

TEST(AuditParser, AssistantWithoutUsageHasEmptyUsage) {
  EXPECT_EQ(usageOf(assistantLine("[]")), "{}");
}

TEST(AuditParser, UsageThatIsEmptyOrNoObjectIsEmpty) {
  for (const char* usage : {"{}", "null", "[1]", "5", R"("12")"}) {
    EXPECT_EQ(usageOf(usageLine(usage)), "{}") << usage;
  }
}

TEST(AuditParser, UsageWithOneCountAsTextFillsTheOthersWithZero) {
  EXPECT_EQ(usageOf(usageLine(R"({"input_tokens": "12"})")),
            compact(R"({"input_tokens": 12, "output_tokens": 0, "cache_creation_input_tokens": 0,
                        "cache_read_input_tokens": 0})"));
}

TEST(AuditParser, UsageWithOnlyOtherKeysHasFourZeros) {
  EXPECT_EQ(usageOf(usageLine(R"({"service_tier": "standard"})")),
            compact(R"({"input_tokens": 0, "output_tokens": 0, "cache_creation_input_tokens": 0,
                        "cache_read_input_tokens": 0})"));
}

TEST(AuditParser, UsageCountsAreIntegersWhateverTheLineHas) {
  EXPECT_EQ(usageOf(usageLine(R"({"input_tokens": 50.0, "output_tokens": 2.9,
                                  "cache_creation_input_tokens": null,
                                  "cache_read_input_tokens": -1})")),
            compact(R"({"input_tokens": 50, "output_tokens": 2, "cache_creation_input_tokens": 0,
                        "cache_read_input_tokens": -1})"));
}

TEST(AuditParserDeathTest, TokenCountBeyond64BitsEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* key : {"input_tokens", "output_tokens", "cache_creation_input_tokens",
                          "cache_read_input_tokens"}) {
    const std::string usage = std::string(R"({")") + key + R"(": 1e30})";
    EXPECT_DEATH(eventsOf(usageLine(usage)), "Fatal error: a count") << key;
  }
}

}  // namespace
}  // namespace pelmar
