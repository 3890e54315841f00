// Into which run the events of a line go: the one at hand, a new one, or another day's.

#include <string>

#include "audit/line_processing.h"
#include "tests/audit/line_test.h"

namespace pelmar {
namespace {

using test::IsJson;
using test::kAnswerLine;
using test::kDaily;
using test::kInitLine;
using test::kStart;
using test::kSteps;
using test::kUserLine;
using test::logOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kRunR = R"({"run_id": "R", "workflow_id": "W"})";
constexpr const char* kNoRun =
    "error cowork-watcher could not establish run for /home/of/the/transcript.jsonl — will retry";

class LineRun : public test::LineTest {
 protected:
  // Without a run, as a new transcript.
  void SetUp() override {
    state_.values = json::parse(R"({"run_id": null, "workflow_id": null, "step_position": 0})");
  }
};

TEST_F(LineRun, IsStartedByTheFirstEventAndTakesAllOfThem) {
  accept(kStart, kRunR);
  accept(kSteps);
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kAnswerLine)); }),
              ElementsAre("info cowork-watcher started per-session run R for session S"));
  EXPECT_THAT(paths(), ElementsAre(kStart, kSteps, kSteps, kSteps));
  EXPECT_EQ(state_.values.at("run_id"), "R");
}

TEST_F(LineRun, IsStartedOnlyWhenNoneIsStored) {
  const struct {
    const char* state;
    bool starts;
  } rows[] = {{R"({"run_id": "R"})", false},  {R"({"run_id": ""})", true},
              {R"({"run_id": null})", true},  {R"({"run_id": 7})", true},
              {R"({"run_id": ["R"]})", true}, {R"({})", true}};
  accept(kStart, kRunR);
  accept(kSteps);
  for (const auto& row : rows) {
    const auto before = bodies(kStart).size();
    state_ = FileState{.values = json::parse(row.state)};
    EXPECT_TRUE(process(kUserLine)) << row.state;
    EXPECT_EQ(bodies(kStart).size() - before, row.starts ? 1U : 0U) << row.state;
    EXPECT_EQ(state_.values.at("run_id"), "R") << row.state;
  }
  EXPECT_THAT(bodies(kSteps), SizeIs(std::size(rows)));
}

TEST_F(LineRun, BeginOfASessionStartsItAndIsNotRecorded) {
  accept(kStart, kRunR);
  accept(kSteps);
  EXPECT_TRUE(process(kInitLine));
  EXPECT_THAT(paths(), ElementsAre(kStart));
  EXPECT_THAT(bodies(kStart).front().at("metadata"),
              IsJson(R"({"source": "cowork-audit", "cowork_session_id": "S", "model": "m"})"));
  EXPECT_THAT(state_.values, IsJson(R"({"run_id": "R", "workflow_id": "W", "step_position": 0,
                                        "seen_keys": []})"));
}

TEST_F(LineRun, BeginOfASessionIsRecordedWhenThereIsARun) {
  accept(kSteps);
  state_.values["run_id"] = "R";
  EXPECT_TRUE(process(kInitLine));
  EXPECT_THAT(paths(), ElementsAre(kSteps));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:session_init"));
  EXPECT_THAT(state_.values.at("seen_keys"), IsJson(R"(["I:session_init:"])"));
}

TEST_F(LineRun, BeginOfASessionIsDoneAlsoWhenNoRunCanBeStarted) {
  service_->script("*", service::answerWith(404));
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kInitLine)); }),
              ElementsAre(testing::HasSubstr("4xx 404 on /api/v1/observe/runs/start/")));
  EXPECT_THAT(state_.values, IsJson(R"({"run_id": null, "workflow_id": null, "step_position": 0,
                                        "seen_keys": []})"));
}

TEST_F(LineRun, ThatCannotBeStartedLeavesTheLineForLater) {
  service_->script(kStart, service::answerWith(500), 3);
  accept(kStart, kRunR);
  accept(kSteps);
  state_.values["seen_keys"] = {"U:assistant:"};
  EXPECT_THAT(logOf([&] { EXPECT_FALSE(process(kAnswerLine)); }), ElementsAre(kNoRun));
  EXPECT_THAT(paths(), ElementsAre(kStart, kStart, kStart));
  EXPECT_THAT(state_.values, IsJson(R"({"run_id": null, "workflow_id": null, "step_position": 0,
                                        "seen_keys": ["U:assistant:"]})"));
  EXPECT_TRUE(process(kAnswerLine));
  EXPECT_THAT(stepNames(), ElementsAre("cowork:tool_use:Read", "cowork:tool_use:Edit"));
}

TEST_F(LineRun, WithoutAnIdIsStoredAndCountsAsNone) {
  accept(kStart, "{}");
  const auto log = logOf([&] { EXPECT_FALSE(process(kUserLine)); });
  EXPECT_THAT(log,
              ElementsAre("info cowork-watcher started per-session run  for session S", kNoRun));
  EXPECT_THAT(paths(), ElementsAre(kStart));
  EXPECT_THAT(state_.values, IsJson(R"({"run_id": "", "workflow_id": "", "step_position": 0,
                                        "seen_keys": []})"));
  service_->clearScripts();
  accept(kStart, kRunR);
  accept(kSteps);
  EXPECT_TRUE(process(kUserLine));
  EXPECT_THAT(paths(), ElementsAre(kStart, kStart, kSteps));
}

TEST_F(LineRun, OfAnotherDayIsLeftForTodays) {
  accept(kDaily, R"({"run_id": "R", "workflow_id": "W2", "date": ")" + todayDateUTC() + "\"}");
  accept(kSteps);
  state_.values = json::parse(R"({"run_id": "old", "workflow_id": "W1", "step_position": 7,
                                  "daily_session_date": "2001-02-03"})");
  const std::string today = todayDateUTC();
  EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kAnswerLine, "G")); }),
              ElementsAre("info cowork-watcher daily run stale (cached=2001-02-03 today=" + today +
                              ") — rolling over",
                          "info cowork-watcher attached cowork session=S to daily run R "
                          "(existing)"));
  EXPECT_THAT(paths(), ElementsAre(kDaily, kSteps, kSteps, kSteps));
  EXPECT_EQ(state_.values.at("workflow_id"), "W2");
  EXPECT_EQ(state_.values.at("daily_session_date"), today);
  EXPECT_EQ(state_.values.at("step_position"), 10);
}

TEST_F(LineRun, OfAnotherDayIsForgottenAlsoWhenThereIsNoOther) {
  service_->script("*", service::answerWith(500));
  for (const char* date : {"2001-02-03", "9999-12-31", "", "today"}) {
    state_ = FileState{.values = {{"run_id", "old"},
                                  {"workflow_id", "W"},
                                  {"daily_session_date", date},
                                  {"run_completed", true}}};
    const auto log = logOf([&] { EXPECT_FALSE(process(kUserLine, "G")); });
    ASSERT_THAT(log, SizeIs(2)) << date;
    EXPECT_THAT(log[0], testing::StartsWith("info cowork-watcher daily run stale (cached=" +
                                            std::string(date) + " today=20"));
    EXPECT_EQ(log[1], kNoRun);
    EXPECT_THAT(state_.values, IsJson(R"({"run_id": null, "workflow_id": null,
        "daily_session_date": null, "run_completed": true, "seen_keys": []})"));
  }
}

TEST_F(LineRun, OfAnotherDayIsLeftByTheBeginOfASessionToo) {
  accept(kDaily, R"({"run_id": "R", "workflow_id": "W", "date": "D"})");
  state_.values = json::parse(R"({"run_id": "old", "daily_session_date": "2001-02-03"})");
  EXPECT_TRUE(process(kInitLine, "G"));
  EXPECT_THAT(paths(), ElementsAre(kDaily));
  EXPECT_THAT(state_.values, IsJson(R"({"run_id": "R", "workflow_id": "W",
                                        "daily_session_date": "D", "seen_keys": []})"));
}

TEST_F(LineRun, IsKeptWithoutASlugWithoutADateAndOnItsDay) {
  accept(kSteps);
  const struct {
    json date;
    const char* agentSlug;
  } rows[] = {{"2001-02-03", ""}, {nullptr, "G"}, {20010203, "G"}, {todayDateUTC(), "G"}};
  for (const auto& row : rows) {
    state_ = FileState{.values = {{"run_id", "R"}, {"daily_session_date", row.date}}};
    EXPECT_THAT(logOf([&] { EXPECT_TRUE(process(kUserLine, row.agentSlug)); }), IsEmpty());
    EXPECT_EQ(state_.values.at("run_id"), "R") << row.date;
    EXPECT_EQ(state_.values.at("daily_session_date").dump(), row.date.dump());
  }
  EXPECT_THAT(bodies(kSteps), SizeIs(std::size(rows)));
}

TEST_F(LineRun, WhoseDayTheServiceDoesNotTellIsLeftAtEveryEvent) {
  accept(kDaily, kRunR);
  accept(kSteps);
  EXPECT_TRUE(process(kAnswerLine, "G"));
  EXPECT_THAT(paths(), ElementsAre(kDaily, kSteps, kDaily, kSteps, kDaily, kSteps));
}

TEST_F(LineRun, OfTheSessionStandsInForTheDailyOneAndIsNotLeft) {
  service_->script(kDaily, service::answerWith(404));
  accept(kStart, kRunR);
  accept(kSteps);
  EXPECT_TRUE(process(kUserLine, "G"));
  EXPECT_TRUE(process(kAnswerLine, "G"));
  EXPECT_THAT(paths(), ElementsAre(kDaily, kStart, kSteps, kSteps, kSteps, kSteps));
  EXPECT_FALSE(state_.values.contains("daily_session_date"));
}

TEST_F(LineRun, IsTheOneThatTheServiceGives) {
  EXPECT_TRUE(process(kInitLine));
  EXPECT_TRUE(process(kAnswerLine));
  EXPECT_TRUE(process(kUserLine));
  ASSERT_THAT(service_->runs(), SizeIs(1));
  EXPECT_EQ(service_->runs().front().at("run_id"), state_.values.at("run_id"));
  EXPECT_THAT(service_->steps(state_.values.at("run_id").get<std::string>()), SizeIs(4));
}

}  // namespace
}  // namespace pelmar
