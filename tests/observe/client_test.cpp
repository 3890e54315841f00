// What each operation of the client sends, and what it makes of the answer.

#include <string>

#include "observe/observe_client.h"
#include "tests/support/service_test.h"

namespace pelmar {
namespace {

using test::IsJson;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kStart = "/api/v1/observe/runs/start/";
constexpr const char* kDaily = "/api/v1/observe/runs/daily/";

class Client : public test::ServiceTest {};

TEST_F(Client, StartedRunCarriesSessionAndSlug) {
  accept(kStart, R"({"run_id": "R", "workflow_id": "W", "started_at": "T"})");
  const auto run = client().startRun("agent", "workflow", {{"a", 1.0}}, {{"m", nullptr}}, "S", "G");
  ASSERT_TRUE(run);
  EXPECT_EQ(run->runID, "R");
  EXPECT_EQ(run->workflowID, "W");
  EXPECT_EQ(run->startedAt, "T");
  EXPECT_THAT(bodies(kStart),
              ElementsAre(IsJson(R"({"agent_name": "agent", "workflow_name": "workflow",
                                     "inputs": {"a": 1.0}, "metadata": {"m": null},
                                     "session_id": "S", "agent_slug": "G"})")));
  EXPECT_THAT(paths(), ElementsAre(kStart));
  EXPECT_FALSE(activity().front().contains("summary"));
}

TEST_F(Client, StartedRunLeavesOutWhatIsEmpty) {
  const struct {
    const char* sessionID;
    const char* agentSlug;
    const char* body;
  } rows[] = {
      {"", "", R"({"agent_name": "", "workflow_name": "", "inputs": {}, "metadata": {}})"},
      {"S", "", R"({"agent_name": "", "workflow_name": "", "inputs": {}, "metadata": {},
                    "session_id": "S"})"},
      {"", "G", R"({"agent_name": "", "workflow_name": "", "inputs": {}, "metadata": {},
                    "agent_slug": "G"})"},
  };
  accept(kStart);
  for (const auto& row : rows) {
    ASSERT_TRUE(
        client().startRun("", "", json::object(), json::object(), row.sessionID, row.agentSlug));
    EXPECT_THAT(bodies(kStart).back(), IsJson(row.body));
  }
}

TEST_F(Client, FieldsOfAStartedRunThatAreNoStringsAreEmpty) {
  for (const char* answer :
       {"{}", R"({"run_id": null, "workflow_id": 1, "started_at": ["T"]})", "[]", "", "not JSON"}) {
    service_->clearScripts();
    accept(kStart, answer);
    const auto run = client().startRun("a", "w", json::object(), json::object(), "", "");
    ASSERT_TRUE(run) << answer;
    EXPECT_EQ(run->runID, "") << answer;
    EXPECT_EQ(run->workflowID, "") << answer;
    EXPECT_EQ(run->startedAt, "") << answer;
  }
}

TEST_F(Client, FailedStartsAreNone) {
  service_->script("*", service::answerWith(404, R"({"run_id": "R"})"));
  EXPECT_FALSE(client().startRun("a", "w", json::object(), json::object(), "", ""));
  EXPECT_FALSE(client().startDailyRun("G", "t"));
}

TEST_F(Client, DailyRunIsAskedForBySlugAndType) {
  accept(kDaily, R"({"run_id": "R", "workflow_id": "W", "started_at": "T", "date": "D",
                     "created": true})");
  const auto run = client().startDailyRun("G", "type");
  ASSERT_TRUE(run);
  EXPECT_EQ(run->runID, "R");
  EXPECT_EQ(run->workflowID, "W");
  EXPECT_EQ(run->startedAt, "T");
  EXPECT_EQ(run->date, "D");
  EXPECT_TRUE(run->created);
  EXPECT_THAT(bodies(kDaily), ElementsAre(IsJson(R"({"agent_slug": "G", "agent_type": "type"})")));
  EXPECT_FALSE(activity().front().contains("summary"));
}

TEST_F(Client, EmptySlugOfADailyRunIsSent) {
  accept(kDaily);
  ASSERT_TRUE(client().startDailyRun("", ""));
  EXPECT_THAT(bodies(kDaily), ElementsAre(IsJson(R"({"agent_slug": "", "agent_type": ""})")));
}

TEST_F(Client, FieldsOfADailyRunOfAnotherTypeAreEmpty) {
  for (const char* answer :
       {"{}", R"({"run_id": 1, "workflow_id": null, "started_at": {}, "date": 20260304})"}) {
    service_->clearScripts();
    accept(kDaily, answer);
    const auto run = client().startDailyRun("G", "t");
    ASSERT_TRUE(run) << answer;
    EXPECT_EQ(run->runID + run->workflowID + run->startedAt + run->date, "") << answer;
    EXPECT_FALSE(run->created) << answer;
  }
}

TEST_F(Client, DailyRunIsCreatedOnlyByTheBooleanTrue) {
  const struct {
    const char* created;
    bool isCreated;
  } rows[] = {{"true", true}, {"false", false}, {"\"true\"", false}, {"1", false},
              {"1.0", false}, {"null", false},  {"[true]", false}};
  for (const auto& row : rows) {
    service_->clearScripts();
    accept(kDaily, std::string(R"({"created": )") + row.created + "}");
    const auto run = client().startDailyRun("G", "t");
    ASSERT_TRUE(run);
    EXPECT_EQ(run->created, row.isCreated) << row.created;
  }
}

TEST_F(Client, StepsAreSentWithTheHardwareUuidAndCounted) {
  constexpr const char* kSteps = "/api/v1/observe/runs/R/steps/";
  accept(kSteps);
  EXPECT_TRUE(client().recordSteps("R", json::parse(R"([{"position": 0, "x": 50.0}])")));
  EXPECT_TRUE(client().recordSteps("R", json::parse(R"([{"n": 0}, {"n": 1}])")));
  EXPECT_THAT(bodies(kSteps),
              ElementsAre(IsJson(R"({"steps": [{"position": 0, "x": 50.0}],
                                     "hardware_uuid": "HW-1"})"),
                          IsJson(R"({"steps": [{"n": 0}, {"n": 1}], "hardware_uuid": "HW-1"})")));
  EXPECT_EQ(activity().at(0).at("summary"), "1 step");
  EXPECT_EQ(activity().at(1).at("summary"), "2 steps");
}

TEST_F(Client, LlmCallsAreSentWithTheHardwareUuidAndCounted) {
  constexpr const char* kCalls = "/api/v1/observe/runs/R/llm-calls/";
  accept(kCalls);
  const json eleven(11, json::object());
  EXPECT_TRUE(client().recordLLMCalls("R", json::parse(R"([{"cost": 0.0}])")));
  EXPECT_TRUE(client().recordLLMCalls("R", eleven));
  EXPECT_THAT(bodies(kCalls),
              ElementsAre(IsJson(R"({"calls": [{"cost": 0.0}], "hardware_uuid": "HW-1"})"),
                          IsJson(json({{"calls", eleven}, {"hardware_uuid", "HW-1"}}).dump())));
  EXPECT_EQ(activity().at(0).at("summary"), "1 call");
  EXPECT_EQ(activity().at(1).at("summary"), "11 calls");
}

TEST_F(Client, NoStepsAndNoCallsAreRecordedWithoutARequest) {
  EXPECT_TRUE(client().recordSteps("R", json::array()));
  EXPECT_TRUE(client().recordLLMCalls("R", json::array()));
  EXPECT_TRUE(ObserveClient("", "").recordSteps("R", json::array()));
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_THAT(activity(), IsEmpty());
}

TEST_F(Client, CompletionCarriesAnEmptyErrorAndNoSteps) {
  constexpr const char* kComplete = "/api/v1/observe/runs/R/complete/";
  accept(kComplete);
  EXPECT_TRUE(client().completeRun("R", "success", {{"num_turns", 4}}));
  EXPECT_TRUE(client().completeRun("R", "error", json::object()));
  EXPECT_THAT(bodies(kComplete),
              ElementsAre(IsJson(R"({"status": "success", "result": {"num_turns": 4},
                                     "error": "", "steps": []})"),
                          IsJson(R"({"status": "error", "result": {}, "error": "",
                                     "steps": []})")));
  EXPECT_FALSE(activity().front().contains("summary"));
}

TEST_F(Client, RecordsAreTakenByAnySuccessAndLostByAnyFailure) {
  const struct {
    int status;
    const char* body;
    bool isTaken;
  } rows[] = {{200, "[]", true},  {201, "", true},    {299, "no JSON", true}, {300, "{}", false},
              {400, "{}", false}, {404, "{}", false}, {500, "{}", false}};
  const json one = json::parse("[{}]");
  for (const auto& row : rows) {
    service_->clearScripts();
    service_->script("*", service::answerWith(row.status, row.body));
    EXPECT_EQ(client().recordSteps("R", one), row.isTaken) << row.status;
    EXPECT_EQ(client().recordLLMCalls("R", one), row.isTaken) << row.status;
    EXPECT_EQ(client().completeRun("R", "success", json::object()), row.isTaken) << row.status;
  }
}

TEST_F(Client, RunIdStandsInThePathAsItIs) {
  accept("/");
  const json one = json::parse("[{}]");
  for (const std::string id : {"a%2Fb", "x/../y", "run-1_2.3~4", "", "a%20b", "r?q=1"}) {
    EXPECT_TRUE(client().recordSteps(id, one)) << id;
    EXPECT_TRUE(client().recordLLMCalls(id, one)) << id;
    EXPECT_TRUE(client().completeRun(id, "success", json::object())) << id;
    const auto requests = service_->requests();
    ASSERT_GE(requests.size(), 3) << id;
    const auto targets = [&](std::size_t i) {
      return requests.at(requests.size() - 3 + i).request.target;
    };
    EXPECT_EQ(targets(0), "/api/v1/observe/runs/" + id + "/steps/");
    EXPECT_EQ(targets(1), "/api/v1/observe/runs/" + id + "/llm-calls/");
    EXPECT_EQ(targets(2), "/api/v1/observe/runs/" + id + "/complete/");
  }
}

TEST_F(Client, RunIdThatMakesNoUrlFailsWithoutATrace) {
  EXPECT_FALSE(client().recordSteps("a b", json::parse("[{}]")));
  EXPECT_FALSE(client().completeRun("a b", "success", json::object()));
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_THAT(activity(), IsEmpty());
}

TEST_F(Client, CopiesWorkOnTheirOwn) {
  accept("/");
  auto first = std::make_unique<ObserveClient>(client());
  ObserveClient second = *first;
  second.apiUrl += "/second";
  EXPECT_TRUE(first->post("/x", json::object(), ""));
  EXPECT_TRUE(second.post("/x", json::object(), ""));
  first.reset();
  EXPECT_TRUE(second.post("/x", json::object(), ""));
  EXPECT_THAT(paths(), ElementsAre("/x", "/second/x", "/second/x"));
}

TEST_F(Client, ServiceTakesWhatTheClientSends) {
  const auto client = this->client();
  const auto run = client.startRun("a", "w", json::object(), json::object(), "S", "G");
  ASSERT_TRUE(run);
  EXPECT_TRUE(client.completeRun(run->runID, "success", json::object()));
  const auto daily = client.startDailyRun("G", "t");
  ASSERT_TRUE(daily);
  EXPECT_TRUE(daily->created);
  EXPECT_FALSE(client.startDailyRun("G", "t")->created);
  EXPECT_THAT(service_->runs(), SizeIs(2));
  EXPECT_THAT(service_->completions(), SizeIs(1));
}

}  // namespace
}  // namespace pelmar
