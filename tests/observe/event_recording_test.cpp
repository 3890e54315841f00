// Steps: what is sent of an event, at which position, and what is remembered of it.

#include "observe/event_recording.h"

#include <string>

#include "tests/observe/recording_test.h"

namespace pelmar {
namespace {

using test::eventOf;
using test::IsJson;
using test::kSteps;
using test::times;
using testing::ElementsAre;

class EventRecording : public test::RecordingTest {
 protected:
  void SetUp() override { accept("/api/v1/observe/runs/R/"); }

  std::vector<json> positions() {
    std::vector<json> positions;
    for (const json& body : bodies(kSteps)) {
      positions.push_back(body.at("steps").at(0).at("position"));
    }
    return positions;
  }
};

TEST_F(EventRecording, FirstEventIsTheStepAtPositionZero) {
  EXPECT_TRUE(record({.stepName = "cowork:tool_use:Read",
                      .kind = "tool_use",
                      .sessionID = "S",
                      .timestamp = "2026-03-04T05:06:07.089Z",
                      .payload = json::parse(R"({"tool_name": "Read", "n": 50.0,
                                                 "big": 18446744073709551615})")}));
  EXPECT_THAT(paths(), ElementsAre(kSteps));
  EXPECT_THAT(bodies(kSteps), ElementsAre(IsJson(R"({
      "steps": [{
        "step_name": "cowork:tool_use:Read",
        "position": 0,
        "output": {
          "kind": "tool_use",
          "timestamp": "2026-03-04T05:06:07.089Z",
          "source": "cowork-audit",
          "session_id": "S",
          "hardware_uuid": "HW-1",
          "tool_name": "Read",
          "n": 50.0,
          "big": 18446744073709551615
        }
      }],
      "hardware_uuid": "HW-1"})")));
  EXPECT_THAT(state_, IsJson(R"({"run_id": "R", "step_position": 1})"));
  EXPECT_EQ(activity().front().at("summary"), "1 step");
}

TEST_F(EventRecording, PositionsCountUpOverAllKindsOfEvents) {
  for (const char* kind : {"user_message", "assistant", "tool_use", "result:success", "unknown"}) {
    EXPECT_TRUE(record(eventOf(kind)));
  }
  EXPECT_THAT(positions(), ElementsAre(0, 1, 2, 3, 4));
  EXPECT_EQ(state_.at("step_position"), 5);
}

TEST_F(EventRecording, PayloadKeysReplaceThoseOfTheFrame) {
  EXPECT_TRUE(record(eventOf("tool_use", R"({"kind": "K", "timestamp": 1, "source": null,
                                             "session_id": [], "hardware_uuid": {}})")));
  EXPECT_THAT(bodies(kSteps).front().at("steps").at(0), IsJson(R"({
      "step_name": "cowork:tool_use", "position": 0,
      "output": {"kind": "K", "timestamp": 1, "source": null, "session_id": [],
                 "hardware_uuid": {}}})"));
  EXPECT_EQ(bodies(kSteps).front().at("hardware_uuid"), "HW-1");
}

TEST_F(EventRecording, KindInThePayloadDoesNotChangeWhatTheEventIs) {
  EXPECT_TRUE(record(eventOf("unknown", R"({"kind": "user_message", "text": "t"})")));
  EXPECT_TRUE(record(eventOf("unknown", R"({"kind": "result:success", "subtype": "success"})")));
  EXPECT_THAT(paths(), ElementsAre(kSteps, kSteps));
  EXPECT_THAT(state_, IsJson(R"({"run_id": "R", "step_position": 2})"));
}

TEST_F(EventRecording, StoredPositionIsUsedWhenItIsAnInteger) {
  const struct {
    const char* state;
    std::int64_t position;
    std::int64_t next;
  } rows[] = {
      {R"({})", 0, 1},
      {R"({"step_position": 7})", 7, 8},
      {R"({"step_position": 50.0})", 50, 51},
      {R"({"step_position": -3})", -3, -2},
      {R"({"step_position": 50.5})", 0, 1},
      {R"({"step_position": "7"})", 0, 1},
      {R"({"step_position": null})", 0, 1},
      {R"({"step_position": true})", 0, 1},
      {R"({"step_position": [7]})", 0, 1},
      {R"({"step_position": 9223372036854775808})", 0, 1},
      {R"({"step_position": 1e300})", 0, 1},
      {R"({"step_position": 9223372036854775806})", 9223372036854775806, 9223372036854775807},
      // Nothing lies behind the last one; a state of somebody else's making must not end the agent.
      {R"({"step_position": 9223372036854775807})", 9223372036854775807, 9223372036854775807},
  };
  for (const auto& row : rows) {
    state_ = json::parse(row.state);
    EXPECT_TRUE(record(eventOf("unknown"))) << row.state;
    EXPECT_EQ(positions().back().dump(), std::to_string(row.position)) << row.state;
    EXPECT_EQ(state_.at("step_position").dump(), std::to_string(row.next)) << row.state;
  }
}

TEST_F(EventRecording, FailedStepUsesUpItsPosition) {
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(404), 2);
  accept(kSteps);
  EXPECT_FALSE(record(eventOf("unknown")));
  EXPECT_EQ(state_.at("step_position"), 1);
  EXPECT_FALSE(record(eventOf("unknown")));
  EXPECT_TRUE(record(eventOf("unknown")));
  EXPECT_THAT(positions(), ElementsAre(0, 1, 2));
  EXPECT_EQ(state_.at("step_position"), 3);
}

TEST_F(EventRecording, AttemptsOfOneRequestShareAPosition) {
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(503), 2);
  accept(kSteps);
  EXPECT_TRUE(record(eventOf("unknown")));
  EXPECT_THAT(positions(), ElementsAre(0, 0, 0));
  EXPECT_EQ(state_.at("step_position"), 1);
}

TEST_F(EventRecording, FailedStepHasNeitherCallNorCompletion) {
  service_->clearScripts();
  service_->script("*", service::answerWith(404));
  EXPECT_FALSE(record(eventOf("assistant", R"({"usage": {"input_tokens": 1,
                                                         "output_tokens": 1}})")));
  EXPECT_FALSE(record(eventOf("result:success", R"({"subtype": "success"})")));
  EXPECT_THAT(paths(), ElementsAre(kSteps, kSteps));
  EXPECT_THAT(state_, IsJson(R"({"run_id": "R", "step_position": 2})"));
}

TEST_F(EventRecording, UserMessageIsRemembered) {
  EXPECT_TRUE(record(eventOf("user_message", R"({"text": "one"})")));
  EXPECT_EQ(state_.at("_last_user_message"), "one");
  EXPECT_TRUE(record(eventOf("user_message", R"({"text": "two"})")));
  EXPECT_EQ(state_.at("_last_user_message"), "two");
  EXPECT_TRUE(record(eventOf("user_message", R"({"text": ""})")));
  EXPECT_EQ(state_.at("_last_user_message"), "");
}

TEST_F(EventRecording, UserMessageIsRememberedAlsoWhenItsStepFails) {
  service_->clearScripts();
  service_->script("*", service::answerWith(404));
  EXPECT_FALSE(record(eventOf("user_message", R"({"text": "one"})")));
  EXPECT_THAT(state_, IsJson(R"({"run_id": "R", "step_position": 1,
                                 "_last_user_message": "one"})"));
}

TEST_F(EventRecording, OnlyTextsOfUserMessagesAreRemembered) {
  state_["_last_user_message"] = "before";
  for (const char* payload : {"{}", R"({"text": null})", R"({"text": 1})", R"({"text": ["t"]})"}) {
    EXPECT_TRUE(record(eventOf("user_message", payload)));
    EXPECT_EQ(state_.at("_last_user_message"), "before") << payload;
  }
  for (const char* kind : {"assistant", "user_message2", "user", "tool_result"}) {
    EXPECT_TRUE(record(eventOf(kind, R"({"text": "after"})")));
    EXPECT_EQ(state_.at("_last_user_message"), "before") << kind;
  }
}

TEST_F(EventRecording, RememberedMessageIsCutToTwoThousandCharactersAndTheStepIsNot) {
  // A letter, an accented one of two bytes, one with a combining accent, a flag, a family, and the
  // line end of two bytes: a character each.
  for (const std::string character : {"a", "é", "e\u0301", "🇩🇪", "👩‍👩‍👧", "\r\n"}) {
    for (const std::size_t count : {1999U, 2000U, 2001U, 5000U}) {
      SCOPED_TRACE(std::to_string(count) + " times " + character);
      const std::string text = times(count, character);
      EXPECT_TRUE(record(eventOf("user_message", json({{"text", text}}).dump())));
      EXPECT_TRUE(state_.at("_last_user_message") ==
                  times(std::min<std::size_t>(count, 2000), character));
      EXPECT_TRUE(bodies(kSteps).back().at("steps").at(0).at("output").at("text") == text);
    }
  }
}

TEST_F(EventRecording, CutNeverTakesACharacterApart) {
  const std::string before = times(1999, "a");
  EXPECT_TRUE(record(eventOf("user_message", json({{"text", before + "e\u0301x"}}).dump())));
  EXPECT_EQ(state_.at("_last_user_message"), before + "e\u0301");
  EXPECT_TRUE(record(eventOf("user_message", json({{"text", before + "xe\u0301"}}).dump())));
  EXPECT_EQ(state_.at("_last_user_message"), before + "x");
}

TEST_F(EventRecording, StateKeepsWhatItDoesNotKnow) {
  state_ = json::parse(R"({"offset": 7, "seen_keys": ["k"], "further": {"a": 1.0}})");
  EXPECT_TRUE(record(eventOf("tool_use")));
  EXPECT_THAT(state_, IsJson(R"({"offset": 7, "seen_keys": ["k"], "further": {"a": 1.0},
                                 "step_position": 1})"));
}

}  // namespace
}  // namespace pelmar
