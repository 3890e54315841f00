// The kinds that are read from the top level of the line.

#include <gmock/gmock.h>

#include "tests/audit/parsed_line.h"

namespace pelmar {
namespace {

using test::compact;
using test::eventsOf;
using test::kindsAndPayloads;

TEST(AuditParser, SystemInitLineYieldsSessionInit) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "init", "session_id": "s",
                                 "cwd": "/w", "model": "m", "tools": ["Read", "Bash"],
                                 "permissionMode": "default"})"),
            compact(R"([{"session_init": {"cwd": "/w", "model": "m", "tools": ["Read", "Bash"],
                                          "inner_session_id": "s"}}])"));
}

TEST(AuditParser, SessionInitWithNothingElseHasEmptyTextsAndNoTools) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "init"})"),
            compact(R"([{"session_init": {"cwd": "", "model": "", "tools": [],
                                          "inner_session_id": ""}}])"));
}

TEST(AuditParser, SessionInitKeepsToolsOfAnyType) {
  for (const char* tools : {"null", "0", "1.0", "false", R"("Read")", R"({"a":[1]})"}) {
    const std::string line =
        std::string(R"({"type": "system", "subtype": "init", "tools": )") + tools + "}";
    EXPECT_EQ(eventsOf(line).at(0).payload["tools"].dump(), tools);
  }
}

TEST(AuditParser, SessionInitTextsOfAnotherTypeAreEmpty) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "init", "session_id": 1,
                                 "cwd": null, "model": {"id": "m"}})"),
            compact(R"([{"session_init": {"cwd": "", "model": "", "tools": [],
                                          "inner_session_id": ""}}])"));
}

TEST(AuditParser, InnerSessionIdOfSessionInitComesFromSessionIdAlone) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "init", "sessionId": "b",
                                 "message": {"session_id": "c", "id": "d", "model": "m"}})"),
            compact(R"([{"session_init": {"cwd": "", "model": "", "tools": [],
                                          "inner_session_id": ""}}])"));
}

TEST(AuditParser, PermissionRequestWithOnlyAToolNameHasDefaults) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "permission_request",
                                 "tool_name": "Bash"})"),
            compact(R"([{"permission:request": {"tool_name": "Bash", "tool_input": {},
                         "decision": "", "reason": "", "auto_approved": false}}])"));
}

TEST(AuditParser, PermissionResponseCarriesDecisionAndReason) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "permission_response",
                                 "tool_name": "Bash", "tool_input": {"command": "ls"},
                                 "decision": "deny", "reason": "no"})"),
            compact(R"([{"permission:response": {"tool_name": "Bash",
                         "tool_input": {"command": "ls"}, "decision": "deny", "reason": "no",
                         "auto_approved": false}}])"));
}

TEST(AuditParser, PermissionAutoApprovedIsMarkedSo) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "permission_auto_approved"})"),
            compact(R"([{"permission:auto_approved": {"tool_name": "", "tool_input": {},
                         "decision": "", "reason": "", "auto_approved": true}}])"));
}

TEST(AuditParser, AutoApprovedFollowsTheSubtypeAndNotTheLine) {
  const char* request =
      R"({"type": "system", "subtype": "permission_request", "auto_approved": true})";
  const char* approved =
      R"({"type": "system", "subtype": "permission_auto_approved", "auto_approved": false})";
  EXPECT_EQ(eventsOf(request).at(0).payload["auto_approved"], false);
  EXPECT_EQ(eventsOf(approved).at(0).payload["auto_approved"], true);
}

TEST(AuditParser, PermissionKeepsToolInputOfAnyType) {
  for (const char* input : {"null", "[]", "1.0", "true", R"("ls")"}) {
    const std::string line =
        std::string(R"({"type": "system", "subtype": "permission_request", "tool_input": )") +
        input + "}";
    EXPECT_EQ(eventsOf(line).at(0).payload["tool_input"].dump(), input);
  }
}

TEST(AuditParser, PermissionDoesNotReadTheInputOfAToolUse) {
  const char* line = R"({"type": "system", "subtype": "permission_request", "input": {"a": 1},
                         "name": "Bash"})";
  EXPECT_EQ(kindsAndPayloads(line),
            compact(R"([{"permission:request": {"tool_name": "", "tool_input": {},
                         "decision": "", "reason": "", "auto_approved": false}}])"));
}

TEST(AuditParser, PermissionTextsOfAnotherTypeAreEmpty) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "permission_response",
                                 "tool_name": 1, "decision": true, "reason": ["r"]})"),
            compact(R"([{"permission:response": {"tool_name": "", "tool_input": {},
                         "decision": "", "reason": "", "auto_approved": false}}])"));
}

TEST(AuditParser, SystemStatusLineCarriesStatusAndMessage) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "status", "status": "compacting",
                                 "message": "wait"})"),
            compact(R"([{"system_status": {"status": "compacting", "message": "wait"}}])"));
}

TEST(AuditParser, SystemStatusTextsDefaultToEmpty) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "status", "status": null,
                                 "message": {"status": "inner"}})"),
            compact(R"([{"system_status": {"status": "", "message": ""}}])"));
}

TEST(AuditParser, CompactBoundaryCopiesItsTokenCounts) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "compact_boundary",
                                 "compact_type": "auto", "pre_tokens": 5, "post_tokens": "2"})"),
            compact(R"([{"compact_boundary": {"compact_type": "auto", "pre_tokens": 5,
                                              "post_tokens": "2"}}])"));
}

TEST(AuditParser, CompactBoundaryLeavesOutCountsThatTheLineLacks) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "compact_boundary"})"),
            compact(R"([{"compact_boundary": {"compact_type": ""}}])"));
}

TEST(AuditParser, CompactBoundaryReadsTheTopLevelOnly) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "system", "subtype": "compact_boundary",
                                 "message": {"compact_type": "auto", "pre_tokens": 1}})"),
            compact(R"([{"compact_boundary": {"compact_type": ""}}])"));
}

TEST(AuditParser, ResultLineNamesItsSubtypeInTheKind) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "result", "subtype": "error_max_turns",
                                 "summary": "done", "duration_ms": 1200, "num_turns": 3,
                                 "total_cost_usd": 0.1, "is_error": true})"),
            compact(R"([{"result:error_max_turns": {"subtype": "error_max_turns",
                         "summary": "done", "duration_ms": 1200, "num_turns": 3,
                         "total_cost_usd": 0.1}}])"));
}

TEST(AuditParser, ResultLineWithoutSubtypeIsUnknownResult) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "result"})"),
            compact(R"([{"result:unknown": {"subtype": "", "summary": ""}}])"));
}

TEST(AuditParser, ResultLineWithEmptyOrNonStringSubtypeIsUnknownResult) {
  for (const char* subtype : {R"("")", "null", "1"}) {
    const std::string line = std::string(R"({"type": "result", "subtype": )") + subtype + "}";
    EXPECT_EQ(kindsAndPayloads(line),
              compact(R"([{"result:unknown": {"subtype": "", "summary": ""}}])"));
  }
}

TEST(AuditParser, ResultLineOfASystemSubtypeStaysAResult) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "result", "subtype": "init"})"),
            compact(R"([{"result:init": {"subtype": "init", "summary": ""}}])"));
}

TEST(AuditParser, CopiedValuesKeepTheirTypeAndValue) {
  for (const char* value :
       {"null", "true", R"("1")", "1", "1.0", "-0.0", "0.30000000000000004", "9007199254740993",
        "9223372036854775808", "18446744073709551615", "1e+30", "[1,2.0]", R"({"a":null})"}) {
    const std::string line = std::string(R"({"type": "result", "duration_ms": )") + value + "}";
    EXPECT_EQ(eventsOf(line).at(0).payload["duration_ms"].dump(), value);
  }
}

TEST(AuditParser, ToolUseSummaryLineCarriesItsFourKeys) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "tool_use_summary", "tool_name": "Read",
                                 "tool_use_id": "t", "is_error": true, "summary": "s",
                                 "subtype": "ignored"})"),
            compact(R"([{"tool_use_summary": {"tool_name": "Read", "tool_use_id": "t",
                                              "is_error": true, "summary": "s"}}])"));
}

TEST(AuditParser, ToolUseSummaryWithNothingElseHasDefaults) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "tool_use_summary"})"),
            compact(R"([{"tool_use_summary": {"tool_name": "", "tool_use_id": "",
                                              "is_error": false, "summary": ""}}])"));
}

TEST(AuditParser, ToolUseSummaryErrorMarkThatIsNoBooleanIsFalse) {
  for (const char* mark : {"null", "1", R"("true")", "[true]"}) {
    const std::string line =
        std::string(R"({"type": "tool_use_summary", "is_error": )") + mark + "}";
    EXPECT_EQ(eventsOf(line).at(0).payload["is_error"].dump(), "false") << mark;
  }
}

TEST(AuditParser, RateLimitEventLineCopiesItsNumbers) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "rate_limit_event", "status": "allowed",
                                 "resets_at": 1772600767, "tokens_remaining": 5,
                                 "tokens_used": 7.5})"),
            compact(R"([{"rate_limit": {"status": "allowed", "resets_at": 1772600767,
                                        "tokens_remaining": 5, "tokens_used": 7.5}}])"));
}

TEST(AuditParser, RateLimitLeavesOutNumbersThatTheLineLacks) {
  EXPECT_EQ(kindsAndPayloads(R"({"type": "rate_limit_event", "tokens_used": null})"),
            compact(R"([{"rate_limit": {"status": "", "tokens_used": null}}])"));
}

}  // namespace
}  // namespace pelmar
