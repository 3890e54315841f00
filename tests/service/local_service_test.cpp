#include <sys/stat.h>

#include <thread>

#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

using LocalServiceTest = ServiceTest;

const json kDaily = {{"agent_slug", "agent"}, {"agent_type", "claude-cowork"}};
constexpr const char* kDailyPath = "/api/v1/observe/runs/daily/";

TEST_F(LocalServiceTest, AnswersUnauthorizedWithoutTheKey) {
  const Answer answer =
      exchange(requestText("POST", kDailyPath, compactJson(kDaily), "Connection: close\r\n"));
  EXPECT_EQ(answer.status, 401);
  EXPECT_TRUE(answer.value().contains("error"));
  EXPECT_TRUE(service_->runs().empty());
}

TEST_F(LocalServiceTest, FindsTheDailyRunOfTheDayAndStartsAnotherOnTheNext) {
  const json first = post(kDailyPath, kDaily).value();
  const json again = post(kDailyPath, kDaily).value();
  now_ += 1min;
  const json next = post(kDailyPath, kDaily).value();
  EXPECT_EQ(first["date"], "2026-01-31");
  EXPECT_EQ(first["started_at"], "2026-01-31T23:59:00.000Z");
  EXPECT_EQ(first["created"], true);
  EXPECT_EQ(again["created"], false);
  EXPECT_EQ(again["run_id"], first["run_id"]);
  EXPECT_EQ(again["workflow_id"], first["workflow_id"]);
  EXPECT_EQ(next["date"], "2026-02-01");
  EXPECT_EQ(next["created"], true);
  EXPECT_NE(next["run_id"], first["run_id"]);
}

TEST_F(LocalServiceTest, StartsARunForEverySession) {
  const json body = {{"agent_name", "claude-cowork"},
                     {"workflow_name", "cowork:S1"},
                     {"inputs", {{"source", "claude_cowork"}}},
                     {"metadata", {{"model", "m"}}},
                     {"session_id", "S1"}};
  const json one = post("/api/v1/observe/runs/start/", body).value();
  const json two = post("/api/v1/observe/runs/start/", body).value();
  EXPECT_EQ(one.size(), 3U);
  EXPECT_NE(one["run_id"], two["run_id"]);
  const std::vector<json> runs = service_->runs();
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs[0]["run_id"], one["run_id"]);
  EXPECT_EQ(runs[0]["session_id"], "S1");
  EXPECT_EQ(runs[0]["metadata"], body["metadata"]);
}

TEST_F(LocalServiceTest, StoresADoubleTwice) {
  const std::string path = stepsPath(newRun());
  EXPECT_EQ(post(path, stepsBody(2)).value()["recorded"], 2);
  post(path, stepsBody(2));
  const std::vector<json> steps = service_->steps();
  ASSERT_EQ(steps.size(), 4U);
  EXPECT_EQ(steps[3]["position"], 1);
  EXPECT_EQ(steps[3]["kind"], "assistant");
  EXPECT_EQ(steps[3]["output"], stepNumbered(1)["output"]);
}

TEST_F(LocalServiceTest, StoresCallsCompletionsAndHeartbeats) {
  const std::string run = "/api/v1/observe/runs/" + newRun();
  EXPECT_EQ(post(run + "/llm-calls/", {{"calls", {llmCall()}}, {"hardware_uuid", "H"}}).status,
            200);
  EXPECT_EQ(post(run + "/complete/", {{"status", "success"},
                                      {"result", {{"num_turns", 4}}},
                                      {"error", ""},
                                      {"steps", json::array()}})
                .status,
            200);
  EXPECT_EQ(post("/api/v1/observe/agents/agent/heartbeat/",
                 {{"source", "watcher"}, {"machine_id", "mac"}})
                .status,
            200);
  ASSERT_EQ(service_->llmCalls().size(), 1U);
  EXPECT_EQ(service_->llmCalls()[0]["tokens_out"], 4);
  ASSERT_EQ(service_->completions().size(), 1U);
  EXPECT_EQ(service_->completions()[0]["result"], json({{"num_turns", 4}}));
  ASSERT_EQ(service_->heartbeats().size(), 1U);
  EXPECT_EQ(service_->heartbeats()[0]["agent_slug"], "agent");
}

TEST_F(LocalServiceTest, TakesAStepWhosePayloadIsAsDeepAsAnAgentsLineMayBe) {
  json deep = "bottom";
  for (int level = 0; level < kMaxJsonDepth; ++level) deep = json::array({std::move(deep)});
  json body = stepsBody(1);
  body["steps"][0]["output"]["tool_input"] = deep;
  EXPECT_EQ(post(stepsPath(newRun()), body).status, 200);
  EXPECT_EQ(service_->steps().front()["output"]["tool_input"], deep);
}

TEST_F(LocalServiceTest, NamesTheWrongKeyAndStoresNothingOfTheBatch) {
  json body = stepsBody(2);
  body["steps"][1]["position"] = "secret words";
  const Answer answer = post(stepsPath(newRun()), body);
  EXPECT_EQ(answer.status, 400);
  EXPECT_EQ(answer.value()["key"], "steps[1].position");
  EXPECT_EQ(answer.body.find("secret words"), std::string::npos);
  EXPECT_TRUE(service_->steps().empty());
}

TEST_F(LocalServiceTest, AnswersBadRequestToABodyThatIsNoObject) {
  EXPECT_EQ(post(kDailyPath, json::array()).status, 400);
  EXPECT_EQ(exchange(requestText("POST", kDailyPath, "{", keyHeader())).status, 400);
}

TEST_F(LocalServiceTest, AnswersNotFoundForAnUnknownRunAndPath) {
  EXPECT_EQ(post(stepsPath("nobody"), stepsBody(1)).status, 404);
  EXPECT_EQ(post(stepsPath(""), stepsBody(1)).status, 404);
  EXPECT_EQ(post("/api/v1/observe/runs/" + newRun() + "/other/", json::object()).status, 404);
  EXPECT_EQ(get(kDailyPath).status, 404);
}

TEST_F(LocalServiceTest, AnswersADeviceOnlyForItsTenantAndProcess) {
  service_->registerDevice({"token", "acme", "Cowork", {{"upload_api_key", "k"}}});
  const auto ask = [&](const std::string& token, const std::string& process) {
    return exchange(
        requestText("GET", "/api/pelmar/v1/endpoint/agent-config/?process=" + process, "",
                    "X-Pel-Device: " + token + "\r\nX-Pel-Tenant: acme\r\nConnection: close\r\n"));
  };
  EXPECT_EQ(ask("token", "Cowork").value(), json({{"upload_api_key", "k"}}));
  EXPECT_EQ(ask("token", "Claude").status, 404);
  EXPECT_EQ(ask("other", "Cowork").status, 401);
}

TEST_F(LocalServiceTest, RemembersRequestsAsTheyCameAndStoresThemMasked) {
  post(kDailyPath, json::array());
  const std::vector<ReceivedRequest> remembered = service_->requests();
  ASSERT_EQ(remembered.size(), 1U);
  EXPECT_EQ(remembered[0].request.header("x-pel-key"), kKey);
  EXPECT_EQ(remembered[0].request.headers.size(), 4U);
  EXPECT_EQ(remembered[0].status, 400);
  const std::vector<json> stored = service_->storedRequests();
  ASSERT_EQ(stored.size(), 1U);
  EXPECT_EQ(stored[0]["body"], "[]");
  EXPECT_EQ(stored[0]["status"], 400);
  EXPECT_EQ(compactJson(stored[0]["headers"]).find(kKey), std::string::npos);
  EXPECT_NE(compactJson(stored[0]["headers"]).find("***"), std::string::npos);
}

TEST_F(LocalServiceTest, StoresNeitherTheKeyNorADevicesTokenHoweverTheHeaderIsWritten) {
  for (const char* name : {"X-Pel-Key", "x-pel-key", "X-Pel-Device", "X-PEL-DEVICE"}) {
    exchange(requestText("GET", "/any", "",
                         std::string(name) + ": the-secret\r\nConnection: close\r\n"));
    const std::string headers = compactJson(service_->storedRequests().back()["headers"]);
    EXPECT_EQ(headers.find("the-secret"), std::string::npos) << headers;
    EXPECT_NE(headers.find(std::string("[\"") + name + R"(","***"])"), std::string::npos)
        << headers;
  }
}

TEST_F(LocalServiceTest, KeepsItsFilesToTheirOwner) {
  newRun();
  for (const char* name : {"service.db", "service.db-wal", "service.db-shm"}) {
    struct stat status {};
    ASSERT_EQ(::stat(file(name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << name;
  }
}

TEST_F(LocalServiceTest, KeepsWhatItStoredAcrossRestarts) {
  const std::string run = newRun();
  restart();
  EXPECT_EQ(newRun(), run);
}

TEST_F(LocalServiceTest, KeepsARequestThatItsStopBreaksOff) {
  Client client(service_->url());
  const std::string text =
      requestText("POST", kDailyPath, "body", keyHeader() + "Expect: 100-continue\r\n");
  client.send(text.substr(0, text.size() - 4));
  client.readUntil("100 Continue");  // it waits for the body
  restart();
  ASSERT_EQ(service_->storedRequests().size(), 1U);
  EXPECT_EQ(service_->storedRequests()[0]["status"], 400);
}

TEST_F(LocalServiceTest, AnswersAnErrorAndKeepsNothingWhenTheDatabaseRefuses) {
  const std::string path = stepsPath(newRun());
  refuseRows("steps", "new.position = 1");
  EXPECT_EQ(post(path, stepsBody(2)).status, 500);
  EXPECT_TRUE(service_->steps().empty());
  EXPECT_EQ(service_->storedRequests().back()["status"], 500);
  EXPECT_EQ(post(path, stepsBody(1)).status, 200);
}

TEST_F(LocalServiceTest, WaitsUntilTheStepsAreStored) {
  const std::string path = stepsPath(newRun());
  std::thread sender([&] {
    for (int i = 0; i < 5; ++i) post(path, stepsBody(1));
  });
  EXPECT_TRUE(service_->waitFor([&] { return service_->steps().size() == 5; }, kPatience));
  sender.join();
  EXPECT_FALSE(service_->waitFor([&] { return service_->steps().size() == 6; }, 1ms));
}

TEST(LocalServiceStart, SaysWhyItCannotOpenItsDatabase) {
  const test::TempRoot root;
  std::string error;
  EXPECT_EQ(LocalService::start({.database = root.path() + "/no/such.db", .key = kKey}, error),
            nullptr);
  EXPECT_NE(error.find("No such file"), std::string::npos) << error;
}

TEST_F(LocalServiceTest, RefusesAPortThatIsTaken) {
  const std::string url = service_->url();
  const auto port = static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
  std::string error;
  EXPECT_EQ(LocalService::start({.database = file("b.db"), .key = kKey, .port = port}, error),
            nullptr);
  EXPECT_NE(error.find("port"), std::string::npos);
}

}  // namespace
}  // namespace pelmar::service
