#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

using QueryTest = ServiceTest;

TEST_F(QueryTest, NeedsTheKey) {
  const std::string text = requestText("GET", "/api/local/summary", "", "Connection: close\r\n");
  EXPECT_EQ(exchange(text).status, 401);
}

TEST_F(QueryTest, SumsUpWhatIsStored) {
  const std::string run = newRun();
  post(stepsPath(run), stepsBody(3));
  post("/api/v1/observe/runs/" + run + "/llm-calls/",
       {{"calls", {llmCall(), llmCall()}}, {"hardware_uuid", "H"}});
  post(stepsPath("nobody"), stepsBody(1));
  json summary = get("/api/local/summary").value();
  EXPECT_GT(summary["requests"]["bytes_received"], 0);
  summary["requests"].erase("bytes_received");
  EXPECT_EQ(summary, *parseJson(R"({
    "runs": 1,
    "steps": {"total": 3, "by_step_name": {"cowork:assistant": 3}, "by_kind": {"assistant": 3}},
    "llm_calls": {"total": 2, "by_model": {"m": {"calls": 2, "tokens_in": 60, "tokens_out": 8}}},
    "completions": {"by_status": {}},
    "heartbeats": 0,
    "requests": {"total": 4, "by_status": {"200": 3, "404": 1}}})"));
}

TEST_F(QueryTest, PagesThroughTheStepsOfARun) {
  const std::string run = newRun();
  post(stepsPath(run), stepsBody(3));
  const std::string query = "/api/local/runs/" + run + "/steps?limit=2";
  const json first = get(query).value();
  ASSERT_EQ(first["items"].size(), 2U);
  const json second = get(query + "&after=" + compactJson(first["next"])).value();
  ASSERT_EQ(second["items"].size(), 1U);
  EXPECT_EQ(second["items"][0]["position"], 2);
  EXPECT_EQ(second["next"], nullptr);
}

TEST_F(QueryTest, ListsRunsAndRequests) {
  const std::string run = newRun();
  post(stepsPath(run), stepsBody(3));
  const json runs = get("/api/local/runs").value();
  ASSERT_EQ(runs["items"].size(), 1U);
  EXPECT_EQ(runs["items"][0]["steps"], 3);
  const json requests = get("/api/local/requests?after=1").value();
  ASSERT_EQ(requests["items"].size(), 1U);
  EXPECT_EQ(requests["items"][0]["path"], stepsPath(run));
}

TEST_F(QueryTest, RefusesAnUnknownRunAndABadPage) {
  EXPECT_EQ(get("/api/local/runs/nobody/steps").status, 404);
  EXPECT_EQ(get("/api/local/other").status, 404);
  EXPECT_EQ(get("/api/local/runs?limit=0").value()["key"], "limit");
  EXPECT_EQ(get("/api/local/runs?after=x").value()["key"], "after");
}

}  // namespace
}  // namespace pelmar::service
