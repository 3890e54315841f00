#include <algorithm>

#include "service/exports.h"
#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

json stepOf(int position, const std::string& kind, const json& payload = json::object()) {
  json step = stepNumbered(position);
  step["step_name"] = "cowork:" + kind;
  step["output"]["kind"] = kind;
  step["output"].erase("text");
  step["output"].update(payload);
  return step;
}

class PageQueryTest : public ServiceTest {
 protected:
  void send(const std::string& run, const std::vector<json>& steps) {
    EXPECT_EQ(post(stepsPath(run), {{"steps", steps}, {"hardware_uuid", "H1"}}).status, 200);
  }

  // Two turns: a tool that fails, and an answer with its LLM call.
  std::string talk() {
    std::string run = newRun();
    send(run, {stepOf(0, "user_message", {{"text", "water \"the\" plants"}})});
    send(run, {stepOf(1, "tool_use",
                      {{"tool_use_id", "t1"},
                       {"tool_name", "Bash"},
                       {"tool_input", {{"command", "ls /söme"}}}}),
               stepOf(2, "tool_result",
                      {{"tool_use_id", "t1"}, {"is_error", true}, {"content", "no such file"}})});
    send(run, {stepOf(3, "user_message", {{"text", "again"}})});
    send(run, {stepOf(4, "assistant", {{"text", "done"}})});
    post("/api/v1/observe/runs/" + run + "/llm-calls/",
         {{"calls", {llmCall()}}, {"hardware_uuid", "H1"}});
    return run;
  }

  json timeline(const std::string& run, const std::string& parameters) {
    return get("/api/local/runs/" + run + "/timeline" + parameters).value();
  }
};

std::vector<json> column(const json& page, const char* name) {
  std::vector<json> values;
  for (const json& item : page.at("items")) values.push_back(item.at(name));
  return values;
}

using Values = std::vector<json>;

TEST_F(PageQueryTest, PutsStepsIntoTurnsAndPairsToolsWithTheirResults) {
  const json page = timeline(talk(), "");
  EXPECT_EQ(page["total"], 5);
  EXPECT_EQ(column(page, "turn"), (Values{1, 1, 1, 2, 2}));
  EXPECT_EQ(column(page, "partner"), (Values{nullptr, 3, 2, nullptr, nullptr}));
  EXPECT_EQ(column(page, "tool_name"), (Values{"", "Bash", "Bash", "", ""}));
  EXPECT_EQ(column(page, "request"), (Values{2, 3, 3, 4, 5}));
  EXPECT_EQ(column(page, "place"), (Values{0, 0, 1, 0, 0}));
  EXPECT_EQ(column(page, "preview"),
            (Values{"water \"the\" plants", "ls /söme", "no such file", "again", "done"}));
  EXPECT_EQ(column(page, "tokens_in"), (Values{nullptr, nullptr, nullptr, nullptr, 30}));
}

TEST_F(PageQueryTest, FiltersStepsAndFindsTheirPlace) {
  const std::string run = talk();
  const struct {
    const char* filter;
    Values positions;
  } cases[] = {{"kind=user_message", {0, 3}},
               {"tool=Bash", {1, 2}},
               {"errors=1", {2}},
               {"session=S1&offset=3", {3, 4}},
               {"session=S2", {}},
               {"search=PLANTS", {0}},
               {"search=%22the%22", {0}},
               {"search=s%C3%B6me", {1}},
               {"search=bash", {1, 2}},
               {"search=%25", {}},
               {"search=content", {}},
               {"search=cowork-audit", {}},
               {"limit=2&offset=1", {1, 2}}};
  for (const auto& one : cases) {
    EXPECT_EQ(column(timeline(run, std::string("?") + one.filter), "position"), one.positions)
        << one.filter;
  }
  const std::string place = "/api/local/runs/" + run + "/place?step=4";
  EXPECT_EQ(get(place).value()["place"], 3);
  EXPECT_EQ(get(place + "&kind=user_message").value()["place"], 1);
}

TEST_F(PageQueryTest, PointsOutPositionsThatAreMissingOrCameTwice) {
  const std::string run = newRun();
  send(run, {stepOf(1, "a"), stepOf(2, "b"), stepOf(2, "c"), stepOf(5, "d"), stepOf(6, "d")});
  const json findings = get("/api/local/runs/" + run + "/findings").value();
  ASSERT_EQ(findings["missing"].size(), 2U);
  EXPECT_EQ(findings["missing"][0]["first"], 0);
  EXPECT_EQ(findings["missing"][0]["last"], 0);
  EXPECT_EQ(findings["missing"][1]["first"], 3);
  EXPECT_EQ(findings["missing"][1]["last"], 4);
  ASSERT_EQ(findings["twice"].size(), 1U);
  EXPECT_EQ(findings["twice"][0]["position"], 2);
  ASSERT_EQ(findings["recorded_twice"].size(), 1U);
  EXPECT_EQ(findings["recorded_twice"][0]["first"], 4);
  EXPECT_EQ(findings["recorded_twice"][0]["step"], 5);
}

TEST_F(PageQueryTest, FindsNothingWhereASessionGoesOnInTheNextDaysRun) {
  const std::string first = newRun();
  send(first, {stepOf(0, "a"), stepOf(1, "b")});
  now_ += 1min;
  const std::string second = newRun();
  send(second, {stepOf(2, "c"), stepOf(3, "d")});
  for (const std::string& run : {first, second}) {
    const json findings = get("/api/local/runs/" + run + "/findings").value();
    EXPECT_EQ(findings, json({{"missing", json::array()},
                              {"twice", json::array()},
                              {"recorded_twice", json::array()}}));
  }
}

TEST_F(PageQueryTest, SumsUpWhatFreeTextWentOut) {
  const std::string run = talk();
  const json privacy = get("/api/local/runs/" + run + "/privacy").value();
  EXPECT_EQ(privacy["categories"], *parseJson(R"([
    {"category": "user text", "bytes": 24},
    {"category": "tool input", "bytes": 23},
    {"category": "tool output", "bytes": 12},
    {"category": "model text", "bytes": 6}])"))
      << compactJson(privacy["categories"]);
  ASSERT_EQ(privacy["largest"].size(), 5U);
  EXPECT_GE(privacy["largest"][0]["body_bytes"], privacy["largest"][1]["body_bytes"]);
  EXPECT_EQ(get("/api/local/privacy").value()["fields"], privacy["fields"]);
}

TEST_F(PageQueryTest, ListsRunsSortedAndSearched) {
  const std::string one = talk();
  now_ += 1min;
  const std::string two = newRun();
  send(two, {stepOf(0, "user_message", {{"text", "needle"}})});
  const json byDate = get("/api/local/run-list").value();
  EXPECT_EQ(byDate["total"], 2);
  EXPECT_EQ(column(byDate, "run_id"), (Values{two, one}));
  EXPECT_EQ(column(byDate, "tokens_in"), (Values{0, 30}));
  EXPECT_EQ(column(byDate, "errors"), (Values{0, 1}));
  EXPECT_EQ(column(byDate, "status"), (Values{"open", "open"}));
  EXPECT_EQ(column(get("/api/local/run-list?sort=steps&order=desc").value(), "run_id"),
            (Values{one, two}));
  EXPECT_EQ(column(get("/api/local/run-list?search=needle").value(), "matches"), (Values{1}));
  EXPECT_EQ(get("/api/local/run-list?search=nowhere").value()["total"], 0);
  EXPECT_EQ(get("/api/local/run-list?sort=id;drop").value()["key"], "sort");
}

TEST_F(PageQueryTest, ShowsTheOverview) {
  talk();
  post("/api/v1/observe/agents/agent/heartbeat/", {{"source", "w"}, {"machine_id", "mac"}});
  post(stepsPath("nobody"), stepsBody(1));
  const json overview = get("/api/local/overview").value();
  json totals = overview["totals"];
  EXPECT_GT(totals["bytes_sent"], 0);
  totals.erase("bytes_sent");
  EXPECT_EQ(totals, *parseJson(R"({"sessions": 1, "runs": 1, "steps": 5, "llm_calls": 1,
    "tokens_in": 30, "tokens_out": 4, "requests": 8, "failed_requests": 1})"));
  EXPECT_EQ(overview["agents"], *parseJson(R"([{"agent_slug": "agent", "agent_name":
    "claude-cowork", "machine_id": "mac", "last_heartbeat": "2026-01-31T23:59:00.000Z",
    "runs": 1, "runs_today": 1}])"));
  EXPECT_EQ(overview["series"]["unit"], "minute");
  const json& points = overview["series"]["points"];
  EXPECT_TRUE(std::any_of(points.begin(), points.end(), [](const json& point) {
    return point["time"] == "2026-01-31T23:59:00Z" && point["measure"] == "event" &&
           point["name"] == "user_message" && point["count"] == 2;
  }));
}

TEST_F(PageQueryTest, ListsTheLatestRequestsFirstAndGivesOneWhole) {
  const std::string run = talk();
  post(stepsPath("nobody"), stepsBody(1));
  const json all = get("/api/local/request-list?limit=2").value();
  EXPECT_EQ(all["total"], 7);
  EXPECT_EQ(column(all, "id"), (Values{7, 6}));
  EXPECT_EQ(column(get("/api/local/request-list?failed=1").value(), "id"), (Values{7}));
  EXPECT_EQ(get("/api/local/request-list?run=" + run).value()["total"], 5);
  const json whole = get("/api/local/requests/7").value();
  EXPECT_EQ(whole["body"], compactJson(stepsBody(1)));
  EXPECT_EQ(compactJson(whole["headers"]).find(kKey), std::string::npos);
  EXPECT_EQ(get("/api/local/requests/8").status, 404);
}

TEST_F(PageQueryTest, KeepsNoFigureOfARequestThatTheDatabaseRefused) {
  const std::string run = talk();
  json broken = stepsBody(2);
  broken["steps"][1]["position"] = "x";
  EXPECT_EQ(post(stepsPath(run), broken).status, 400);
  EXPECT_EQ(timeline(run, "")["total"], 5);
  EXPECT_EQ(get("/api/local/overview").value()["totals"]["steps"], 5);
}

// The pieces of a chunked body, put together.
std::string joined(const std::string& body) {
  std::string text;
  std::size_t at = 0;
  while (at < body.size()) {
    const std::size_t end = body.find("\r\n", at);
    const std::size_t size = std::stoul(body.substr(at, end - at), nullptr, 16);
    if (size == 0) break;
    text += body.substr(end + 2, size);
    at = end + 2 + size + 2;
  }
  return text;
}

TEST_F(PageQueryTest, ExportsARunOrEverything) {
  const std::string run = talk();
  now_ += 1min;
  send(newRun(), {stepOf(0, "user_message", {{"text", "other"}})});
  const std::string lines = joined(get("/api/local/export.jsonl?run=" + run).body);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 7);
  const auto first = parseJson(lines.substr(0, lines.find('\n')));
  ASSERT_TRUE(first);
  EXPECT_EQ((*first)["type"], "run");
  EXPECT_EQ((*first)["row"]["run_id"], run);
  const std::string all = joined(get("/api/local/export.jsonl").body);
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 9);
  const std::string csv = joined(get("/api/local/export.csv?run=" + run).body);
  EXPECT_EQ(csv.substr(0, csv.find("\r\n")),
            "run_id,position,step_name,kind,session_id,timestamp,hardware_uuid,output,received_at");
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 6);
  EXPECT_NE(csv.find(R"(""text"":""water \""the\"" plants"")"), std::string::npos);
  EXPECT_EQ(get("/api/local/export.csv?run=nobody").status, 404);
}

TEST(CsvField, IsQuotedAndNeverAFormula) {
  EXPECT_EQ(csvField(-5), "-5");
  EXPECT_EQ(csvField("a,\"b\"\n"), "\"a,\"\"b\"\"\n\"");
  EXPECT_EQ(csvField(""), "\"\"");
  for (const char* start : {"=", "+", "-", "@", "\t", "\r"}) {
    EXPECT_EQ(csvField(std::string(start) + "1"), std::string("\"'") + start + "1\"");
  }
}

TEST_F(PageQueryTest, TellsOfEveryChangeUntilItStops) {
  Client listener(service_->url());
  listener.send(requestText("GET", "/api/local/changes", "", keyHeader()));
  const std::string begin = listener.readUntil("data: 0\n\n");
  EXPECT_NE(begin.find("Content-Type: text/event-stream"), std::string::npos);
  newRun();
  EXPECT_NE(listener.readUntil("data: 1\n\n").find("data: 1\n\n"), std::string::npos);
  service_->stop();
  EXPECT_EQ(listener.readToEnd().find("data: "), std::string::npos);
}

TEST_F(PageQueryTest, HasWrittenEverythingWhenItHasStopped) {
  const std::string run = talk();
  restart();
  EXPECT_EQ(service_->steps(run).size(), 5U);
}

}  // namespace
}  // namespace pelmar::service
