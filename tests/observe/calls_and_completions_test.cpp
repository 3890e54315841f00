// What some events are besides a step: an LLM call, or the end of their run.

#include <string>

#include "tests/observe/recording_test.h"

namespace pelmar {
namespace {

using test::eventOf;
using test::IsJson;
using test::kCalls;
using test::kComplete;
using test::kSteps;
using test::times;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class LlmCalls : public test::RecordingTest {
 protected:
  void SetUp() override { accept("/api/v1/observe/runs/R/"); }
};

class Completions : public test::RecordingTest {
 protected:
  void SetUp() override { accept("/api/v1/observe/runs/R/"); }
};

TEST_F(LlmCalls, AnswerWithUsageIsACallBehindItsStep) {
  EXPECT_TRUE(record(eventOf("user_message", R"({"text": "question"})")));
  EXPECT_TRUE(record(eventOf("assistant", R"({"model": "m", "text": "answer",
      "usage": {"input_tokens": 12, "output_tokens": 34, "cache_read_input_tokens": 5}})")));
  EXPECT_THAT(paths(), ElementsAre(kSteps, kSteps, kCalls));
  EXPECT_THAT(bodies(kCalls), ElementsAre(IsJson(R"({
      "calls": [{"model": "m", "tokens_in": 12, "tokens_out": 34, "cost": 0.0, "task": "cowork",
                 "prompt_preview": "question", "response_preview": "answer"}],
      "hardware_uuid": "HW-1"})")));
  EXPECT_EQ(activity().back().at("summary"), "1 call");
}

TEST_F(LlmCalls, OnlyTwoIntegersOfWhichOneIsPositiveAreUsage) {
  const struct {
    const char* usage;
    const char* tokens;  // none without a call
  } rows[] = {
      {R"({"input_tokens": 1, "output_tokens": 0})", "[1,0]"},
      {R"({"input_tokens": 0, "output_tokens": 1})", "[0,1]"},
      {R"({"input_tokens": -1, "output_tokens": 1})", "[-1,1]"},
      {R"({"input_tokens": 1, "output_tokens": -1})", "[1,-1]"},
      {R"({"input_tokens": 2.0, "output_tokens": 3.0})", "[2,3]"},
      {R"({"input_tokens": 9223372036854775807, "output_tokens": 0})", "[9223372036854775807,0]"},
      {R"({"input_tokens": 0, "output_tokens": 0})", nullptr},
      {R"({"input_tokens": -1, "output_tokens": 0})", nullptr},
      {R"({"input_tokens": -1, "output_tokens": -1})", nullptr},
      {R"({"input_tokens": 12})", nullptr},
      {R"({"output_tokens": 12})", nullptr},
      {R"({"input_tokens": 12, "output_tokens": null})", nullptr},
      {R"({"input_tokens": "12", "output_tokens": 12})", nullptr},
      {R"({"input_tokens": 12, "output_tokens": 1.5})", nullptr},
      {R"({"input_tokens": true, "output_tokens": 12})", nullptr},
      {R"({"input_tokens": 18446744073709551615, "output_tokens": 12})", nullptr},
      {R"({})", nullptr},
      {R"(null)", nullptr},
      {R"([1, 1])", nullptr},
      {R"("12")", nullptr},
  };
  std::size_t calls = 0;
  for (const auto& row : rows) {
    EXPECT_TRUE(record(eventOf("assistant", std::string(R"({"usage": )") + row.usage + "}")));
    const auto sent = bodies(kCalls);
    calls += row.tokens == nullptr ? 0 : 1;
    ASSERT_THAT(sent, SizeIs(calls)) << row.usage;
    if (row.tokens == nullptr) continue;
    const json& call = sent.back().at("calls").at(0);
    EXPECT_THAT(json({call.at("tokens_in"), call.at("tokens_out")}), IsJson(row.tokens));
  }
  EXPECT_THAT(bodies(kSteps), SizeIs(std::size(rows)));
}

TEST_F(LlmCalls, OnlyAssistantEventsAreCalls) {
  for (const char* kind : {"tool_use", "user_message", "assistant2", "result:assistant"}) {
    EXPECT_TRUE(record(eventOf(kind, R"({"usage": {"input_tokens": 1, "output_tokens": 1}})")));
  }
  EXPECT_TRUE(record(eventOf("assistant")));
  EXPECT_THAT(bodies(kCalls), IsEmpty());
}

TEST_F(LlmCalls, ValuesThatAreNoTextsHaveDefaults) {
  const struct {
    const char* state;
    const char* payload;
    const char* model;
    const char* prompt;
    const char* response;
  } rows[] = {
      {"{}", R"("x": 1)", "claude-cowork-unknown", "", ""},
      {R"({"_last_user_message": 1})", R"("model": null, "text": null)", "claude-cowork-unknown",
       "", ""},
      {R"({"_last_user_message": null})", R"("model": 4, "text": ["t"])", "claude-cowork-unknown",
       "", ""},
      {R"({"_last_user_message": "q"})", R"("model": "", "text": "")", "", "q", ""},
      {R"({"_last_user_message": "q"})", R"("model": "m", "text": "a")", "m", "q", "a"},
  };
  for (const auto& row : rows) {
    state_ = json::parse(row.state);
    EXPECT_TRUE(
        record(eventOf("assistant", R"({"usage": {"input_tokens": 1, "output_tokens": 1}, )" +
                                        std::string(row.payload) + "}")));
    const json call = bodies(kCalls).back().at("calls").at(0);
    EXPECT_EQ(call.at("model"), row.model);
    EXPECT_EQ(call.at("prompt_preview"), row.prompt);
    EXPECT_EQ(call.at("response_preview"), row.response);
    EXPECT_THAT(call.at("cost"), IsJson("0.0"));
  }
}

TEST_F(LlmCalls, PreviewsAreTheFirstTwoThousandCharacters) {
  for (const std::string character : {"a", "é", "e\u0301", "👩‍👩‍👧"}) {
    for (const std::size_t count : {1999U, 2000U, 2001U}) {
      SCOPED_TRACE(std::to_string(count) + " times " + character);
      const std::string text = times(count, character);
      EXPECT_TRUE(record(eventOf("user_message", json({{"text", text + "?"}}).dump())));
      EXPECT_TRUE(record(eventOf(
          "assistant",
          json({{"text", text}, {"usage", {{"input_tokens", 1}, {"output_tokens", 1}}}}).dump())));
      const json call = bodies(kCalls).back().at("calls").at(0);
      const std::string question = count < 2000 ? text + "?" : times(2000, character);
      EXPECT_TRUE(call.at("prompt_preview") == question);
      EXPECT_TRUE(call.at("response_preview") ==
                  times(std::min<std::size_t>(count, 2000), character));
    }
  }
}

TEST_F(LlmCalls, LostCallIsIgnoredAndNotSentAgain) {
  service_->clearScripts();
  service_->script(kCalls, service::answerWith(404));
  accept(kSteps);
  EXPECT_TRUE(record(eventOf("assistant", R"({"usage": {"input_tokens": 1,
                                                        "output_tokens": 1}})")));
  EXPECT_TRUE(record(eventOf("tool_use")));
  EXPECT_THAT(paths(), ElementsAre(kSteps, kCalls, kSteps));
}

TEST_F(Completions, SuccessCompletesTheRunOnce) {
  EXPECT_TRUE(record(eventOf("result:success", R"({"subtype": "success", "num_turns": 4})")));
  EXPECT_THAT(state_, IsJson(R"({"run_id": "R", "step_position": 1, "run_completed": true})"));
  EXPECT_TRUE(record(eventOf("result:success", R"({"subtype": "success", "num_turns": 5})")));
  EXPECT_THAT(paths(), ElementsAre(kSteps, kComplete, kSteps));
  EXPECT_THAT(bodies(kComplete), ElementsAre(IsJson(R"({
      "status": "success", "error": "", "steps": [],
      "result": {"cowork_result_subtype": "success", "num_turns": 4}})")));
}

TEST_F(Completions, ResultTellsWhatThePayloadHas) {
  const struct {
    const char* kind;
    const char* payload;
    const char* status;
    const char* result;
  } rows[] = {
      {"result:success", R"({"subtype": "success"})", "success",
       R"({"cowork_result_subtype": "success"})"},
      {"result:success",
       R"({"subtype": "success", "duration": 1.0, "num_turns": "4", "total_cost_usd": null,
           "duration_ms": 7, "summary": "s"})",
       "success",
       R"({"cowork_result_subtype": "success", "duration": 1.0, "num_turns": "4",
           "total_cost_usd": null})"},
      {"result:success",
       R"({"subtype": "success", "total_cost_usd": 0.25, "duration": {"s": [1]}})", "success",
       R"({"cowork_result_subtype": "success", "total_cost_usd": 0.25, "duration": {"s": [1]}})"},
      {"result:error_max_turns", R"({"subtype": "error_max_turns", "num_turns": 100})", "error",
       R"({"cowork_result_subtype": "error_max_turns", "num_turns": 100})"},
      {"result:Success", R"({"subtype": "Success"})", "error",
       R"({"cowork_result_subtype": "Success"})"},
      {"result:unknown", R"({"subtype": ""})", "error", R"({"cowork_result_subtype": ""})"},
      {"result:success", R"({})", "error", R"({"cowork_result_subtype": ""})"},
      {"result:success", R"({"subtype": null})", "error", R"({"cowork_result_subtype": ""})"},
      {"result:", R"({"subtype": "success"})", "success",
       R"({"cowork_result_subtype": "success"})"},
  };
  for (const auto& row : rows) {
    state_ = json::object();
    EXPECT_TRUE(record(eventOf(row.kind, row.payload)));
    const json body = bodies(kComplete).back();
    EXPECT_EQ(body.at("status"), row.status) << row.payload;
    EXPECT_THAT(body.at("result"), IsJson(row.result)) << row.payload;
    EXPECT_EQ(state_.at("run_completed"), true);
  }
  EXPECT_THAT(bodies(kComplete), SizeIs(std::size(rows)));
}

TEST_F(Completions, OnlyKindsOfResultsComplete) {
  for (const char* kind :
       {"result", "results:success", "tool_result", "assistant", "Result:success"}) {
    EXPECT_TRUE(record(eventOf(kind, R"({"subtype": "success"})")));
  }
  EXPECT_THAT(bodies(kComplete), IsEmpty());
  EXPECT_FALSE(state_.contains("run_completed"));
}

TEST_F(Completions, OnlyTheBooleanTrueAndANonEmptyDateHoldThemBack) {
  const struct {
    const char* state;
    bool completes;
  } rows[] = {
      {R"({})", true},
      {R"({"run_completed": false})", true},
      {R"({"run_completed": null})", true},
      {R"({"run_completed": 1})", true},
      {R"({"run_completed": "true"})", true},
      {R"({"run_completed": true})", false},
      {R"({"daily_session_date": ""})", true},
      {R"({"daily_session_date": null})", true},
      {R"({"daily_session_date": 20260304})", true},
      {R"({"daily_session_date": "2026-03-04"})", false},
      {R"({"daily_session_date": "x"})", false},
      {R"({"daily_session_date": "2026-03-04", "run_completed": false})", false},
  };
  for (const auto& row : rows) {
    const auto before = bodies(kComplete).size();
    state_ = json::parse(row.state);
    EXPECT_TRUE(record(eventOf("result:success", R"({"subtype": "success"})")));
    EXPECT_EQ(bodies(kComplete).size() - before, row.completes ? 1U : 0U) << row.state;
    json expected = json::parse(row.state);
    expected["step_position"] = 1;
    if (row.completes) expected["run_completed"] = true;
    EXPECT_EQ(state_.dump(), expected.dump()) << row.state;
  }
  EXPECT_THAT(bodies(kSteps), SizeIs(std::size(rows)));
}

TEST_F(Completions, LostCompletionIsIgnoredAndNotSentAgain) {
  service_->clearScripts();
  service_->script(kComplete, service::answerWith(404));
  accept(kSteps);
  EXPECT_TRUE(record(eventOf("result:success", R"({"subtype": "success"})")));
  EXPECT_EQ(state_.at("run_completed"), true);
  EXPECT_TRUE(record(eventOf("result:success", R"({"subtype": "success"})")));
  EXPECT_THAT(paths(), ElementsAre(kSteps, kComplete, kSteps));
}

}  // namespace
}  // namespace pelmar
