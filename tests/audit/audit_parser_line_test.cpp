// What every event takes from its line, whatever the kind.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/audit/parsed_line.h"

namespace pelmar {
namespace {

using test::compact;
using test::eventsOf;
using test::kindsAndPayloads;
using test::sessionIdOf;
using test::timestampOf;

TEST(AuditParser, AuditTimestampComesBeforeTimestamp) {
  EXPECT_EQ(timestampOf(R"({"_audit_timestamp": "audit", "timestamp": "plain"})"), "audit");
}

TEST(AuditParser, TimestampStandsInForAMissingAuditTimestamp) {
  EXPECT_EQ(timestampOf(R"({"timestamp": "plain"})"), "plain");
}

TEST(AuditParser, AuditTimestampOfAnotherTypeCountsAsMissing) {
  for (const char* other : {"null", "1772600767", "true", "{}", "[]"}) {
    const std::string line =
        std::string(R"({"_audit_timestamp": )") + other + R"(, "timestamp": "plain"})";
    EXPECT_EQ(timestampOf(line), "plain") << line;
  }
}

TEST(AuditParser, TimestampIsKeptAsItStands) {
  EXPECT_EQ(timestampOf(R"({"timestamp": " yesterday, 25:61 "})"), " yesterday, 25:61 ");
}

TEST(AuditParser, EmptyTimestampIsKept) {
  EXPECT_EQ(timestampOf(R"({"_audit_timestamp": "", "timestamp": "plain"})"), "");
}

TEST(AuditParser, LineWithoutTimestampGetsTheTimeOfReadingInUtcWithMilliseconds) {
  EXPECT_EQ(timestampOf(R"({"type": "system"})"), "2026-03-04T05:06:07.089Z");
}

TEST(AuditParser, TimestampsOfOtherTypesGiveWayToTheTimeOfReading) {
  EXPECT_EQ(timestampOf(R"({"_audit_timestamp": 1, "timestamp": null})"),
            "2026-03-04T05:06:07.089Z");
}

TEST(AuditParser, SessionIdIsTheFirstStringInItsOrder) {
  const struct {
    const char* line;
    const char* sessionID;
  } rows[] = {
      {R"({"session_id": "a", "sessionId": "b", "message": {"session_id": "c", "id": "d"}})", "a"},
      {R"({"sessionId": "b", "message": {"session_id": "c", "id": "d"}})", "b"},
      {R"({"message": {"session_id": "c", "id": "d"}})", "c"},
      {R"({"message": {"id": "d"}})", "d"},
      {R"({"message": {}})", ""},
      {R"({"id": "e", "uuid": "f"})", ""},
      {R"({})", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(sessionIdOf(row.line), row.sessionID) << row.line;
}

TEST(AuditParser, SessionIdOfAnotherTypeCountsAsMissing) {
  const struct {
    const char* line;
    const char* sessionID;
  } rows[] = {
      {R"({"session_id": null, "sessionId": "b"})", "b"},
      {R"({"session_id": 1, "sessionId": "b"})", "b"},
      {R"({"session_id": {"id": "x"}, "sessionId": ["y"], "message": {"session_id": "c"}})", "c"},
      {R"({"sessionId": true, "message": {"session_id": false, "id": "d"}})", "d"},
      {R"({"message": {"id": 7}})", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(sessionIdOf(row.line), row.sessionID) << row.line;
}

TEST(AuditParser, EmptySessionIdIsKept) {
  for (const char* line : {R"({"session_id": "", "sessionId": "b"})",
                           R"({"sessionId": "", "message": {"session_id": "c"}})",
                           R"({"message": {"session_id": "", "id": "d"}})"}) {
    EXPECT_EQ(sessionIdOf(line), "") << line;
  }
}

TEST(AuditParser, MessageThatIsNoObjectGivesNoSessionId) {
  for (const char* message : {R"("id")", "null", "1", R"([{"id": "d"}])"}) {
    const std::string line = std::string(R"({"type": "assistant", "message": )") + message + "}";
    EXPECT_EQ(sessionIdOf(line), "") << line;
  }
}

TEST(AuditParser, AllEventsOfALineShareItsSessionIdTimestampAndRawLine) {
  const std::string line = R"({"type": "assistant", "session_id": "s", "timestamp": "t",
      "further": [1.0, null], "message": {"content": [
        {"type": "tool_use", "id": "x"}, {"type": "tool_use", "id": "y"}]}})";
  const auto events = eventsOf(line);
  ASSERT_EQ(events.size(), 3U);
  for (const CoworkEvent& event : events) {
    EXPECT_EQ(event.sessionID, "s");
    EXPECT_EQ(event.timestamp, "t");
    EXPECT_EQ(event.raw->dump(), compact(line));
    EXPECT_EQ(event.raw, events[0].raw);
  }
}

TEST(AuditParser, SystemLineOfAnUnlistedSubtypeIsUnknown) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "hook_notice", "status": "x"})"),
            compact(R"([{"unknown": {"type": "system", "subtype": "hook_notice"}}])"));
}

TEST(AuditParser, SystemLineWithoutSubtypeIsUnknown) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system"})"),
            compact(R"([{"unknown": {"type": "system", "subtype": ""}}])"));
}

TEST(AuditParser, EmptyLineIsUnknown) {
  EXPECT_EQ(kindsAndPayloads("{}"), compact(R"([{"unknown": {"type": "", "subtype": ""}}])"));
}

TEST(AuditParser, LineOfAnotherTypeIsUnknown) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "summary", "subtype": "s", "summary": "text"})"),
            compact(R"([{"unknown": {"type": "summary", "subtype": "s"}}])"));
}

TEST(AuditParser, TypeAndSubtypeOfAnotherJsonTypeCountAsEmpty) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": ["system"], "subtype": {"a": "init"}})"),
            compact(R"([{"unknown": {"type": "", "subtype": ""}}])"));
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": 1})"),
            compact(R"([{"unknown": {"type": "system", "subtype": ""}}])"));
}

TEST(AuditParser, TypesAndSubtypesMatchExactly) {
  const struct {
    const char* type;
    const char* subtype;
  } rows[] = {
      {"System", "init"},
      {"system", "Init"},
      {"system", "init "},
      {"system", "permission"},
      {"system", "permission_"},
      {"system", "permission_denied"},
      {"system", "permission_permission_request"},
      {"system", "request"},
      {"system", "status_change"},
      {"system", "compact_boundary_2"},
      {"system", "result"},
      {"results", "success"},
      {"rate_limit", ""},
      {"tool_result", ""},
      {"tool_use", ""},
      {"user_message", ""},
      {"USER", ""},
  };
  for (const auto& row : rows) {
    const nlohmann::json line = {
        {"type", row.type}, {"subtype", row.subtype}, {"message", {{"content", "x"}}}};
    const nlohmann::json expected =
        nlohmann::json::array({{{"unknown", {{"type", row.type}, {"subtype", row.subtype}}}}});
    EXPECT_EQ(kindsAndPayloads(line.dump()), expected.dump());
  }
}

TEST(AuditParser, SubtypeDoesNotTurnAnotherTypeIntoASystemKind) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "status", "subtype": "init"})"),
            compact(R"([{"unknown": {"type": "status", "subtype": "init"}}])"));
}

}  // namespace
}  // namespace pelmar
