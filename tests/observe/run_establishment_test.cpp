#include "observe/run_establishment.h"

#include <string>

#include "tests/support/service_test.h"

namespace pelmar {
namespace {

using test::IsJson;
using test::logOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kStart = "/api/v1/observe/runs/start/";
constexpr const char* kDaily = "/api/v1/observe/runs/daily/";
// As the watcher makes it for a new transcript.
constexpr const char* kNewState =
    R"({"offset": 0, "run_id": null, "workflow_id": null, "step_position": 0})";

RunEvent eventOf(const std::string& kind, const std::string& sessionID,
                 const std::string& payload = "{}") {
  return {.stepName = "cowork:" + kind,
          .kind = kind,
          .sessionID = sessionID,
          .timestamp = "2026-03-04T05:06:07.089Z",
          .payload = json::parse(payload)};
}

class RunEstablishment : public test::ServiceTest {
 protected:
  // What is logged while `state_` gets a run.
  std::vector<std::string> logOfStarting(const RunEvent& event, const std::string& agentSlug) {
    return logOf([&] { ensureRunStarted(event, state_, client(), agentSlug); });
  }

  json state_ = json::parse(kNewState);
};

TEST_F(RunEstablishment, WithASlugTheSessionIsAttachedToTheDailyRun) {
  accept(kDaily, R"({"run_id": "R", "workflow_id": "W", "date": "D", "created": false})");
  const auto log = logOfStarting(eventOf("user_message", "S"), "G");
  EXPECT_THAT(log, ElementsAre("info cowork-watcher attached cowork session=S to daily run R "
                               "(existing)"));
  EXPECT_THAT(bodies(kDaily),
              ElementsAre(IsJson(R"({"agent_slug": "G", "agent_type": "claude-cowork"})")));
  EXPECT_THAT(paths(), ElementsAre(kDaily));
  EXPECT_THAT(state_, IsJson(R"({"offset": 0, "run_id": "R", "workflow_id": "W",
                                 "step_position": 0, "daily_session_date": "D"})"));
}

TEST_F(RunEstablishment, DailyRunThatWasMadeForTheSessionIsLoggedAsCreated) {
  accept(kDaily, R"({"run_id": "R", "workflow_id": "W", "date": "D", "created": true})");
  EXPECT_THAT(logOfStarting(eventOf("session_init", ""), "G"),
              ElementsAre("info cowork-watcher attached cowork session= to daily run R (created)"));
}

TEST_F(RunEstablishment, DailyAnswerWithoutFieldsIsStoredAsEmptyTexts) {
  accept(kDaily, "{}");
  EXPECT_THAT(logOfStarting(eventOf("user_message", "S"), "G"),
              ElementsAre("info cowork-watcher attached cowork session=S to daily run  "
                          "(existing)"));
  EXPECT_THAT(paths(), ElementsAre(kDaily));
  EXPECT_THAT(state_, IsJson(R"({"offset": 0, "run_id": "", "workflow_id": "",
                                 "step_position": 0, "daily_session_date": ""})"));
}

TEST_F(RunEstablishment, WithoutADailyRunTheSessionGetsOneOfItsOwnForTheAgent) {
  service_->script(kDaily, service::answerWith(500));
  accept(kStart, R"({"run_id": "R", "workflow_id": "W", "started_at": "T", "date": "new"})");
  state_["daily_session_date"] = "2026-03-03";
  const auto log = logOfStarting(eventOf("session_init", "S", R"({"model": "m"})"), "G");
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(paths(), ElementsAre(kDaily, kDaily, kDaily, kStart));
  EXPECT_THAT(bodies(kStart),
              ElementsAre(IsJson(R"({"agent_name": "claude-cowork", "workflow_name": "cowork:S",
                  "inputs": {"source": "claude_cowork", "session_id": "S"},
                  "metadata": {"source": "cowork-audit", "cowork_session_id": "S"},
                  "session_id": "S", "agent_slug": "G"})")));
  EXPECT_THAT(state_, IsJson(R"({"offset": 0, "run_id": "R", "workflow_id": "W",
                                 "step_position": 0, "daily_session_date": "2026-03-03"})"));
}

TEST_F(RunEstablishment, FallbackOfASessionWithoutAnIdNamesItUnknown) {
  service_->script(kDaily, service::answerWith(404));
  accept(kStart);
  logOfStarting(eventOf("user_message", ""), "G");
  EXPECT_THAT(bodies(kStart), ElementsAre(IsJson(R"({"agent_name": "claude-cowork",
                  "workflow_name": "cowork:unknown",
                  "inputs": {"source": "claude_cowork", "session_id": ""},
                  "metadata": {"source": "cowork-audit", "cowork_session_id": ""},
                  "agent_slug": "G"})")));
}

TEST_F(RunEstablishment, WithoutAnyRunTheStateIsLeftAsItWas) {
  service_->script("*", service::answerWith(404));
  const std::string refused = "error cowork-watcher.client 4xx 404 on ";
  const std::string behind = " — non-retryable";
  EXPECT_THAT(logOfStarting(eventOf("user_message", "S"), "G"),
              ElementsAre(refused + kDaily + behind, refused + kStart + behind));
  EXPECT_THAT(state_, IsJson(kNewState));
  EXPECT_THAT(logOfStarting(eventOf("user_message", "S"), ""),
              ElementsAre(refused + kStart + behind));
  EXPECT_THAT(state_, IsJson(kNewState));
  EXPECT_THAT(paths(), ElementsAre(kDaily, kStart, kStart));
}

TEST_F(RunEstablishment, WithoutASlugTheSessionGetsARunOfItsOwn) {
  accept(kStart, R"({"run_id": "R", "workflow_id": "W"})");
  const auto log = logOfStarting(eventOf("user_message", "S", R"({"model": "m"})"), "");
  EXPECT_THAT(log, ElementsAre("info cowork-watcher started per-session run R for session S"));
  EXPECT_THAT(paths(), ElementsAre(kStart));
  EXPECT_THAT(bodies(kStart),
              ElementsAre(IsJson(R"({"agent_name": "claude-cowork", "workflow_name": "cowork:S",
                  "inputs": {"source": "claude_cowork", "session_id": "S"},
                  "metadata": {"source": "cowork-audit", "cowork_session_id": "S"},
                  "session_id": "S"})")));
  EXPECT_THAT(state_, IsJson(R"({"offset": 0, "run_id": "R", "workflow_id": "W",
                                 "step_position": 0})"));
}

TEST_F(RunEstablishment, WithoutASlugAndASessionTheWorkflowIsUnknown) {
  accept(kStart, R"({"run_id": "R", "workflow_id": "W"})");
  EXPECT_THAT(logOfStarting(eventOf("user_message", ""), ""),
              ElementsAre("info cowork-watcher started per-session run R for session "));
  EXPECT_THAT(bodies(kStart), ElementsAre(IsJson(R"({"agent_name": "claude-cowork",
                  "workflow_name": "cowork:unknown",
                  "inputs": {"source": "claude_cowork", "session_id": ""},
                  "metadata": {"source": "cowork-audit", "cowork_session_id": ""}})")));
}

TEST_F(RunEstablishment, OnlyTheBeginOfASessionNamesItsModel) {
  const struct {
    const char* kind;
    const char* payload;
    const char* metadata;
  } rows[] = {
      {"session_init", R"({"model": "m"})",
       R"({"source": "cowork-audit", "cowork_session_id": "S", "model": "m"})"},
      {"session_init", "{}",
       R"({"source": "cowork-audit", "cowork_session_id": "S", "model": ""})"},
      {"session_init", R"({"model": 4})",
       R"({"source": "cowork-audit", "cowork_session_id": "S", "model": ""})"},
      {"session_init", R"({"model": null})",
       R"({"source": "cowork-audit", "cowork_session_id": "S", "model": ""})"},
      {"assistant", R"({"model": "m"})", R"({"source": "cowork-audit", "cowork_session_id": "S"})"},
      {"session_init2", R"({"model": "m"})",
       R"({"source": "cowork-audit", "cowork_session_id": "S"})"},
  };
  accept(kStart);
  for (const auto& row : rows) {
    logOfStarting(eventOf(row.kind, "S", row.payload), "");
    EXPECT_THAT(bodies(kStart).back().at("metadata"), IsJson(row.metadata)) << row.payload;
  }
}

TEST_F(RunEstablishment, EmptyRunIdOfASessionRunIsStored) {
  accept(kStart, R"({"workflow_id": 4})");
  EXPECT_THAT(logOfStarting(eventOf("user_message", "S"), ""),
              ElementsAre("info cowork-watcher started per-session run  for session S"));
  EXPECT_THAT(state_, IsJson(R"({"offset": 0, "run_id": "", "workflow_id": "",
                                 "step_position": 0})"));
}

TEST_F(RunEstablishment, RunThatTheStateHoldsIsReplacedAndAllElseKept) {
  accept(kStart, R"({"run_id": "R", "workflow_id": "W"})");
  state_ = json::parse(R"({"run_id": "old", "workflow_id": "old", "step_position": 7,
                           "daily_session_date": "2026-03-03", "run_completed": true,
                           "_last_user_message": "t", "further": [1.0]})");
  logOfStarting(eventOf("user_message", "S"), "");
  EXPECT_THAT(state_, IsJson(R"({"run_id": "R", "workflow_id": "W", "step_position": 7,
                                 "daily_session_date": "2026-03-03", "run_completed": true,
                                 "_last_user_message": "t", "further": [1.0]})"));
}

TEST_F(RunEstablishment, SecondSessionOfTheAgentIsAttachedToTheSameRun) {
  const auto first = logOfStarting(eventOf("user_message", "S1"), "G");
  const json firstState = state_;
  state_ = json::parse(kNewState);
  const auto second = logOfStarting(eventOf("user_message", "S2"), "G");
  EXPECT_THAT(first, ElementsAre(testing::EndsWith(" (created)")));
  EXPECT_THAT(second, ElementsAre(testing::EndsWith(" (existing)")));
  EXPECT_EQ(state_, firstState);
  EXPECT_THAT(service_->runs(), SizeIs(1));
}

}  // namespace
}  // namespace pelmar
