#include "audit/event_names.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/audit/parsed_line.h"

namespace pelmar {
namespace {

using nlohmann::json;
using test::eventsOf;
using testing::ElementsAre;

CoworkEvent eventOf(const std::string& kind, const std::string& payload = "{}") {
  return {
      .kind = kind, .sessionID = {}, .timestamp = {}, .payload = json::parse(payload), .raw = {}};
}

std::vector<std::string> keysOf(const std::string& line) {
  std::vector<std::string> keys;
  for (const CoworkEvent& event : eventsOf(line)) {
    keys.push_back(eventDedupKey(json::parse(line), event));
  }
  return keys;
}

std::vector<std::string> stepNamesOf(const std::string& line) {
  std::vector<std::string> names;
  for (const CoworkEvent& event : eventsOf(line)) names.push_back(stepNameForEvent(event));
  return names;
}

TEST(EventDedupKey, IdentityIsTheFirstStringInItsOrder) {
  const struct {
    const char* line;
    const char* payload;
    const char* key;
  } rows[] = {
      {R"({"uuid": "U", "id": "I"})", R"({"message_id": "M", "tool_use_id": "T"})", "U:k:T"},
      {R"({"id": "I"})", R"({"message_id": "M", "tool_use_id": "T"})", "I:k:T"},
      {R"({})", R"({"message_id": "M", "tool_use_id": "T"})", "M:k:T"},
      {R"({})", R"({"message_id": "M"})", "M:k:"},
      {R"({})", R"({"tool_use_id": "T"})", "T:k:T"},
      {R"({"uuid": "U"})", R"({})", "U:k:"},
      {R"({})", R"({})", ":k:"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(eventDedupKey(json::parse(row.line), eventOf("k", row.payload)), row.key);
  }
}

TEST(EventDedupKey, IdentityOfAnotherTypeCountsAsMissing) {
  const struct {
    const char* line;
    const char* payload;
    const char* key;
  } rows[] = {
      {R"({"uuid": null, "id": "I"})", "{}", "I:k:"},
      {R"({"uuid": 1, "id": {}})", R"({"message_id": "M"})", "M:k:"},
      {R"({})", R"({"message_id": ["M"], "tool_use_id": "T"})", "T:k:T"},
      {R"({})", R"({"tool_use_id": 7})", ":k:"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(eventDedupKey(json::parse(row.line), eventOf("k", row.payload)), row.key);
  }
}

TEST(EventDedupKey, EmptyIdentityIsUsedAsItIs) {
  EXPECT_EQ(eventDedupKey(json::parse(R"({"uuid": "", "id": "I"})"), eventOf("k")), ":k:");
  EXPECT_EQ(
      eventDedupKey(json::object(), eventOf("k", R"({"message_id": "", "tool_use_id": "T"})")),
      ":k:T");
}

TEST(EventDedupKey, IdentityIsNotLookedForElsewhereInTheLine) {
  EXPECT_EQ(eventDedupKey(json::parse(R"({"message_id": "M", "tool_use_id": "T",
                                          "message": {"id": "I", "uuid": "U"}})"),
                          eventOf("k", R"({"uuid": "U", "id": "I"})")),
            ":k:");
}

TEST(EventDedupKey, AssistantAndItsToolCallsDifferByKindAndToolUse) {
  EXPECT_THAT(keysOf(R"({"uuid": "U", "type": "assistant", "message": {"id": "M", "content": [
                         {"type": "tool_use", "id": "T"}, {"type": "tool_use", "id": "T2"}]}})"),
              ElementsAre("U:assistant:", "U:tool_use:T", "U:tool_use:T2"));
}

TEST(EventDedupKey, ToolResultNamesItsToolUse) {
  EXPECT_THAT(keysOf(R"({"uuid": "V", "type": "user", "message": {"content": [
                         {"type": "tool_result", "tool_use_id": "T"}]}})"),
              ElementsAre("V:tool_result:T"));
}

TEST(EventDedupKey, AssistantLineWithoutIdentityUsesItsMessageId) {
  EXPECT_THAT(keysOf(R"({"type": "assistant", "message": {"id": "M", "content": [
                         {"type": "tool_use", "id": "T"}]}})"),
              ElementsAre("M:assistant:", "M:tool_use:T"));
}

TEST(EventDedupKey, EventsOfOneKindWithoutIdentityShareAKey) {
  const char* one = R"({"type": "system", "subtype": "status", "status": "a", "session_id": "s"})";
  const char* other = R"({"type": "system", "subtype": "status", "status": "b"})";
  EXPECT_THAT(keysOf(one), ElementsAre(":system_status:"));
  EXPECT_THAT(keysOf(other), ElementsAre(":system_status:"));
}

TEST(StepNameForEvent, FollowsTheKind) {
  const struct {
    const char* kind;
    const char* payload;
    const char* name;
  } rows[] = {
      {"user_message", R"({"text": "x"})", "cowork:user_message"},
      {"assistant", R"({"tool_name": "x"})", "cowork:assistant"},
      {"tool_use", R"({"tool_name": "Read"})", "cowork:tool_use:Read"},
      {"tool_result", R"({"tool_name": "x"})", "cowork:tool_result"},
      {"tool_use_summary", R"({"tool_name": "Read"})", "cowork:tool_summary:Read"},
      {"session_init", "{}", "cowork:session_init"},
      {"system_status", "{}", "cowork:system_status"},
      {"compact_boundary", "{}", "cowork:compact_boundary"},
      {"rate_limit", "{}", "cowork:rate_limit"},
      {"permission:request", R"({"tool_name": "T", "decision": "D"})",
       "cowork:permission:request:T:D"},
      {"permission:response", R"({"tool_name": "T", "decision": "deny"})",
       "cowork:permission:response:T:deny"},
      {"permission:auto_approved", R"({"tool_name": "T", "decision": ""})",
       "cowork:permission:auto_approved:T:"},
      {"result:success", R"({"tool_name": "x"})", "cowork:result:success"},
      {"result:unknown", "{}", "cowork:result:unknown"},
      {"unknown", "{}", "cowork:unknown"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(stepNameForEvent(eventOf(row.kind, row.payload)), row.name) << row.kind;
  }
}

TEST(StepNameForEvent, ToolNameThatIsNoStringIsTool) {
  for (const char* payload :
       {"{}", R"({"tool_name": null})", R"({"tool_name": 1})", R"({"tool_name": ["Read"]})"}) {
    EXPECT_EQ(stepNameForEvent(eventOf("tool_use", payload)), "cowork:tool_use:tool");
    EXPECT_EQ(stepNameForEvent(eventOf("tool_use_summary", payload)), "cowork:tool_summary:tool");
    EXPECT_EQ(stepNameForEvent(eventOf("permission:request", payload)),
              "cowork:permission:request:tool:unknown");
  }
}

TEST(StepNameForEvent, DecisionThatIsNoStringIsUnknown) {
  for (const char* decision : {"null", "true", "{}"}) {
    const std::string payload = std::string(R"({"tool_name": "T", "decision": )") + decision + "}";
    EXPECT_EQ(stepNameForEvent(eventOf("permission:response", payload)),
              "cowork:permission:response:T:unknown");
  }
}

TEST(StepNameForEvent, EmptyTextsAreUsedAsTheyAre) {
  const char* empty = R"({"tool_name": "", "decision": ""})";
  EXPECT_EQ(stepNameForEvent(eventOf("tool_use", empty)), "cowork:tool_use:");
  EXPECT_EQ(stepNameForEvent(eventOf("tool_use_summary", empty)), "cowork:tool_summary:");
  EXPECT_EQ(stepNameForEvent(eventOf("permission:request", empty)), "cowork:permission:request::");
}

TEST(StepNameForEvent, OnlyPermissionKindsMatchByPrefix) {
  const char* payload = R"({"tool_name": "T", "decision": "D"})";
  EXPECT_EQ(stepNameForEvent(eventOf("permission:", payload)), "cowork:permission::T:D");
  EXPECT_EQ(stepNameForEvent(eventOf("permission:other", payload)), "cowork:permission:other:T:D");
  for (const std::string kind : {"permission", "permissions:x", "tool_use2", "Tool_use",
                                 "tool_use_summary2", "a permission:request", ""}) {
    EXPECT_EQ(stepNameForEvent(eventOf(kind, payload)), "cowork:" + kind);
  }
}

TEST(StepNameForEvent, NamesTheEventsOfALine) {
  EXPECT_THAT(stepNamesOf(R"({"type": "assistant", "message": {"content": [
                              {"type": "tool_use", "name": "Read"}, {"type": "tool_use"}]}})"),
              ElementsAre("cowork:assistant", "cowork:tool_use:Read", "cowork:tool_use:"));
  EXPECT_THAT(stepNamesOf(R"({"type": "result", "subtype": "error_max_turns"})"),
              ElementsAre("cowork:result:error_max_turns"));
  EXPECT_THAT(stepNamesOf(R"({"type": "system", "subtype": "permission_request"})"),
              ElementsAre("cowork:permission:request::"));
}

}  // namespace
}  // namespace pelmar
