// Which events of a line are sent, and which are remembered as sent.

#include "audit/line_processing.h"

#include <string>

#include "tests/audit/line_test.h"

namespace pelmar {
namespace {

using test::IsJson;
using test::kAnswerLine;
using test::kSilentLine;
using test::kSteps;
using test::kUserLine;
using test::logOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class LineProcessing : public test::LineTest {
 protected:
  void SetUp() override { accept("/api/v1/observe/runs/R/"); }

  json keys() const { return state_.values.at("seen_keys"); }
};

json numberedKeys(int from, int to) {
  json keys = json::array();
  for (int i = from; i < to; ++i) keys.push_back(std::to_string(i));
  return keys;
}

TEST_F(LineProcessing, EveryEventIsRecordedInOrderAndItsKeyRemembered) {
  EXPECT_TRUE(process(kAnswerLine));
  EXPECT_TRUE(process(kUserLine));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:assistant", "cowork:tool_use:Read",
                                       "cowork:tool_use:Edit", "cowork:user_message"));
  EXPECT_THAT(state_.values, IsJson(R"({
      "offset": 0, "run_id": "R", "workflow_id": "W", "step_position": 4,
      "seen_keys": ["U:assistant:", "U:tool_use:A", "U:tool_use:B", "V:user_message:"],
      "_last_user_message": "hello"})"));
}

TEST_F(LineProcessing, StepCarriesTheEventOfTheLine) {
  EXPECT_TRUE(process(R"({"type": "rate_limit_event", "session_id": "S", "uuid": "U",
      "timestamp": "T", "status": "low", "resets_at": 50.0})"));
  EXPECT_THAT(bodies(kSteps).front().at("steps"), IsJson(R"([{
      "step_name": "cowork:rate_limit", "position": 0,
      "output": {"kind": "rate_limit", "timestamp": "T", "source": "cowork-audit",
                 "session_id": "S", "hardware_uuid": "HW-1", "status": "low",
                 "resets_at": 50.0}}])"));
}

TEST_F(LineProcessing, LineThatWasRecordedBeforeMakesNoRequest) {
  state_.values["seen_keys"] = {"U:assistant:", "U:tool_use:A", "U:tool_use:B"};
  const json before = state_.values;
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kAnswerLine)); }), IsEmpty());
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_EQ(state_.values.dump(), before.dump());
}

TEST_F(LineProcessing, LineReadAgainMakesNoFurtherRequest) {
  EXPECT_TRUE(process(kAnswerLine));
  const json before = state_.values;
  EXPECT_TRUE(process(kAnswerLine));
  EXPECT_THAT(paths(), SizeIs(3));
  EXPECT_EQ(state_.values.dump(), before.dump());
}

TEST_F(LineProcessing, SkippedEventsNeitherStartARunNorLeaveOne) {
  state_.values = json::parse(R"({"run_id": null, "daily_session_date": "2001-02-03",
                                  "seen_keys": ["V:user_message:"]})");
  const json before = state_.values;
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kUserLine, "G")); }), IsEmpty());
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_EQ(state_.values.dump(), before.dump());
}

TEST_F(LineProcessing, EventsThatWereNotRecordedAreSentWithoutTheOthers) {
  state_.values["seen_keys"] = {"U:tool_use:A"};
  EXPECT_TRUE(process(kAnswerLine));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:assistant", "cowork:tool_use:Edit"));
  EXPECT_THAT(keys(), IsJson(R"(["U:tool_use:A", "U:assistant:", "U:tool_use:B"])"));
}

TEST_F(LineProcessing, FailureAtTheSecondEventRemembersTheFirstAndLeavesTheThird) {
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(200), 1);
  service_->script(kSteps, service::answerWith(404), 1);
  accept(kSteps);
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(process(kAnswerLine)); }),
              ElementsAre(testing::HasSubstr("4xx 404 on ")));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:assistant", "cowork:tool_use:Read"));
  EXPECT_THAT(state_.values, IsJson(R"({
      "offset": 0, "run_id": "R", "workflow_id": "W", "step_position": 2,
      "seen_keys": ["U:assistant:"]})"));

  EXPECT_TRUE(process(kAnswerLine));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:assistant", "cowork:tool_use:Read",
                                       "cowork:tool_use:Read", "cowork:tool_use:Edit"));
  EXPECT_THAT(keys(), IsJson(R"(["U:assistant:", "U:tool_use:A", "U:tool_use:B"])"));
  EXPECT_EQ(state_.values.at("step_position"), 4);
}

TEST_F(LineProcessing, SecondEventOfTheLineWithTheSameKeyIsSkipped) {
  EXPECT_TRUE(process(R"({"type": "user", "uuid": "U", "message": {"content": [
      {"type": "tool_result", "tool_use_id": "A", "content": "one"},
      {"type": "tool_result", "tool_use_id": "A", "content": "two"},
      {"type": "tool_result", "tool_use_id": "B", "content": "three"}]}})"));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:tool_result", "cowork:tool_result"));
  EXPECT_EQ(bodies(kSteps).at(0).at("steps").at(0).at("output").at("content"), "one");
  EXPECT_EQ(bodies(kSteps).at(1).at("steps").at(0).at("output").at("content"), "three");
  EXPECT_THAT(keys(), IsJson(R"(["U:tool_result:A", "U:tool_result:B"])"));
}

TEST_F(LineProcessing, LinesWithoutIdentityAreRecordedOncePerKind) {
  EXPECT_TRUE(process(R"({"type": "system", "subtype": "status", "status": "one"})"));
  EXPECT_TRUE(process(R"({"type": "system", "subtype": "status", "status": "two"})"));
  EXPECT_TRUE(process(R"({"type": "rate_limit_event"})"));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:system_status", "cowork:rate_limit"));
  EXPECT_THAT(keys(), IsJson(R"([":system_status:", ":rate_limit:"])"));
}

TEST_F(LineProcessing, LineWithoutEventsIsDoneWithoutARequestAndWritesTheKeys) {
  const struct {
    const char* stored;
    const char* written;
  } rows[] = {
      {R"({"offset": 7})", R"({"offset": 7, "seen_keys": []})"},
      {R"({"seen_keys": null})", R"({"seen_keys": []})"},
      {R"({"seen_keys": ["a", 1]})", R"({"seen_keys": []})"},
      {R"({"seen_keys": ["a", "b", "a"]})", R"({"seen_keys": ["a", "b", "a"]})"},
      {R"({"daily_session_date": "2001-02-03", "run_id": "R"})",
       R"({"daily_session_date": "2001-02-03", "run_id": "R", "seen_keys": []})"},
  };
  for (const auto& row : rows) {
    state_ = FileState{.values = json::parse(row.stored)};
    EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kSilentLine, "G")); }), IsEmpty());
    EXPECT_THAT(state_.values, IsJson(row.written));
  }
  EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(LineProcessing, KeysThatAreNoArrayOfTextsCountAsNone) {
  for (const char* stored :
       {R"("V:user_message:")", R"(["V:user_message:", null])", R"({"V:user_message:": true})"}) {
    const auto before = bodies(kSteps).size();
    state_ = FileState{.values = {{"run_id", "R"}, {"seen_keys", json::parse(stored)}}};
    EXPECT_TRUE(process(kUserLine));
    EXPECT_EQ(bodies(kSteps).size(), before + 1) << stored;
    EXPECT_THAT(keys(), IsJson(R"(["V:user_message:"])"));
  }
}

TEST_F(LineProcessing, TenThousandKeysStayAndOneMoreCutsThemToTheNewestFiveThousand) {
  state_.values["seen_keys"] = numberedKeys(0, 9999);
  EXPECT_TRUE(process(kUserLine));
  json expected = numberedKeys(0, 9999);
  expected.push_back("V:user_message:");
  EXPECT_EQ(keys(), expected);

  EXPECT_TRUE(process(R"({"type": "rate_limit_event", "uuid": "W"})"));
  expected = numberedKeys(5001, 9999);
  expected.push_back("V:user_message:");
  expected.push_back("W:rate_limit:");
  EXPECT_EQ(keys(), expected);
}

TEST_F(LineProcessing, StoredKeysAboveTheBoundAreCutByALineWithoutEvents) {
  state_.values["seen_keys"] = numberedKeys(0, 10001);
  EXPECT_TRUE(process(kSilentLine));
  EXPECT_EQ(keys(), numberedKeys(5001, 10001));
}

TEST_F(LineProcessing, StoredKeysAboveTheBoundAreCutByALineThatIsSkipped) {
  json stored = numberedKeys(0, 10000);
  stored.push_back("V:user_message:");
  state_.values["seen_keys"] = stored;
  EXPECT_TRUE(process(kUserLine));
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_EQ(keys().size(), 5000);
  EXPECT_EQ(keys().front(), "5001");
}

TEST_F(LineProcessing, FailedLineCutsNothing) {
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(200), 1);
  service_->script(kSteps, service::answerWith(404));
  state_.values["seen_keys"] = numberedKeys(0, 10000);
  EXPECT_FALSE(process(kAnswerLine));
  json expected = numberedKeys(0, 10000);
  expected.push_back("U:assistant:");
  EXPECT_EQ(keys(), expected);
  EXPECT_FALSE(process(kAnswerLine));
  EXPECT_EQ(keys(), expected);
}

TEST_F(LineProcessing, LineMayCutMoreThanItsOwnKeys) {
  state_.values["seen_keys"] = numberedKeys(0, 10000);
  EXPECT_TRUE(process(kAnswerLine));
  json expected = numberedKeys(5003, 10000);
  for (const char* key : {"U:assistant:", "U:tool_use:A", "U:tool_use:B"}) expected.push_back(key);
  EXPECT_EQ(keys(), expected);
}

}  // namespace
}  // namespace pelmar
