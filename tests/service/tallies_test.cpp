#include "service/tallies.h"

#include <algorithm>
#include <map>
#include <random>
#include <tuple>

#include "service/database.h"
#include "service/step_facts.h"
#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

// The tables that repeat the others, a list of rows each.
json derivedTables(Database& database) {
  return {
      {"step_facts", database.prepare("SELECT * FROM step_facts ORDER BY id").rows()},
      {"run_totals", database.prepare("SELECT * FROM run_totals ORDER BY run").rows()},
      {"free_text", database.prepare("SELECT * FROM free_text ORDER BY run, kind, field").rows()},
      {"minutes", database.prepare("SELECT * FROM minutes ORDER BY minute, measure, name").rows()}};
}

std::vector<json> rowsOf(const std::map<std::vector<json>, json>& table) {
  std::vector<json> rows;
  rows.reserve(table.size());
  for (const auto& [key, row] : table) rows.push_back(row);
  return rows;
}

// Makes the same tables anew from the requests and the runs.
class Recomputation {
 public:
  explicit Recomputation(Database& database) {
    for (const json& run : database.prepare("SELECT * FROM runs").rows()) {
      runs_[textAt(run, "run_id")] = run.at("id");
      for (const char* field : {"inputs", "metadata"}) {
        addFreeText(run.at("id"), "run start", {field, "other", freeTextBytes(run.at(field))});
      }
    }
    for (const json& request : database.prepare("SELECT * FROM requests ORDER BY id").rows()) {
      add(request);
    }
  }

  json tables() const {
    return {{"step_facts", steps_},
            {"run_totals", rowsOf(totals_)},
            {"free_text", rowsOf(freeText_)},
            {"minutes", rowsOf(minutes_)}};
  }

 private:
  void add(const json& request) {
    const std::string time = textAt(request, "received_at");
    addMinute(time, "request", compactJson(request["status"]), request["duration_us"],
              request["body_bytes"]);
    const std::string path = textAt(request, "path");
    const std::string prefix = "/api/v1/observe/runs/";
    const std::size_t slash = path.find('/', prefix.size());
    const auto run = runs_.find(path.substr(prefix.size(), slash - prefix.size()));
    if (request["status"] != 200 || run == runs_.end()) return;
    const json body = parseJson(textAt(request, "body")).value();
    const std::string what = path.substr(slash);
    for (std::size_t at = 0; what == "/steps/" && at < body["steps"].size(); ++at) {
      addStep(run->second, request, at, body["steps"][at]);
    }
    if (what == "/llm-calls/") {
      for (const json& call : body["calls"]) addCall(run->second, time, call);
    }
    if (what == "/complete/") {
      for (const char* field : {"result", "error", "steps"}) {
        addFreeText(run->second, "completion", {field, "other", freeTextBytes(body[field])});
      }
    }
  }

  void addStep(const json& run, const json& request, std::size_t place, const json& step) {
    const json& output = step["output"];
    const std::string kind = textAt(output, "kind");
    const std::string session = textAt(output, "session_id");
    const std::string timestamp = textAt(output, "timestamp");
    const std::string text = compactJson(output);
    const StepFacts facts = factsOf(kind, output);
    std::string tool = facts.toolName;
    json turn = 0;
    for (const json& before : steps_) {
      const bool isOfTool =
          tool.empty() && !facts.toolUseId.empty() && before["tool_use_id"] == facts.toolUseId;
      if (isOfTool) tool = before["tool_name"];
      const bool isOfTurn =
          before["run"] == run && (session.empty() || before["session_id"] == session);
      if (isOfTurn) turn = before["turn"];
    }
    if (kind == "user_message") turn = turn.get<int>() + 1;
    steps_.push_back({{"id", steps_.size() + 1},
                      {"run", run},
                      {"request", request["id"]},
                      {"place", place},
                      {"position", step["position"]},
                      {"turn", turn},
                      {"is_error", facts.isError ? 1 : 0},
                      {"bytes", text.size()},
                      {"digest", digestOf(text)},
                      {"tokens_in", nullptr},
                      {"tokens_out", nullptr},
                      {"kind", kind},
                      {"session_id", session},
                      {"timestamp", timestamp},
                      {"tool_name", tool},
                      {"tool_use_id", facts.toolUseId},
                      {"preview", facts.preview.substr(0, 160)}});
    json& totals = totalsOf(run);
    increase(totals["steps"], 1);
    increase(totals["errors"], facts.isError ? 1 : 0);
    if (!timestamp.empty()) {
      const json first = totals["first_event"];
      const json last = totals["last_event"];
      if (first.is_null() || timestamp < first) totals["first_event"] = timestamp;
      if (last.is_null() || timestamp > last) totals["last_event"] = timestamp;
    }
    for (const FreeText& one : facts.freeText) addFreeText(run, kind, one);
    addMinute(textAt(request, "received_at"), "event", kind, 0, 0);
  }

  void addCall(const json& run, const std::string& time, const json& call) {
    json& totals = totalsOf(run);
    increase(totals["llm_calls"], 1);
    increase(totals["tokens_in"], call["tokens_in"]);
    increase(totals["tokens_out"], call["tokens_out"]);
    const auto step = std::find_if(steps_.rbegin(), steps_.rend(), [&](const json& one) {
      return one["run"] == run && one["kind"] == "assistant";
    });
    for (const char* tokens : {"tokens_in", "tokens_out"}) {
      if (step == steps_.rend()) continue;
      if ((*step)[tokens].is_null()) (*step)[tokens] = 0;
      increase((*step)[tokens], call[tokens]);
    }
    addFreeText(run, "LLM call",
                {"prompt_preview", "user text", freeTextBytes(call["prompt_preview"])});
    addFreeText(run, "LLM call",
                {"response_preview", "model text", freeTextBytes(call["response_preview"])});
    addMinute(time, "tokens", textAt(call, "model"), call["tokens_in"], call["tokens_out"]);
  }

  static void increase(json& number, const json& by) {
    number = number.get<std::int64_t>() + by.get<std::int64_t>();
  }

  json& totalsOf(const json& run) {
    const json fresh = {{"run", run},
                        {"steps", 0},
                        {"errors", 0},
                        {"llm_calls", 0},
                        {"tokens_in", 0},
                        {"tokens_out", 0},
                        {"first_event", nullptr},
                        {"last_event", nullptr}};
    return totals_.try_emplace({run}, fresh).first->second;
  }

  void addFreeText(const json& run, const std::string& kind, const FreeText& text) {
    if (text.bytes == 0) return;
    const json fresh = {{"run", run},          {"kind", kind},
                        {"field", text.field}, {"category", std::string(text.category)},
                        {"count", 0},          {"bytes", 0}};
    json& row = freeText_.try_emplace({run, kind, text.field}, fresh).first->second;
    increase(row["count"], 1);
    increase(row["bytes"], text.bytes);
  }

  void addMinute(const std::string& time, const std::string& measure, const std::string& name,
                 const json& first, const json& second) {
    const std::string minute = time.substr(0, 16);
    const json fresh = {{"minute", minute}, {"measure", measure}, {"name", name}, {"count", 0},
                        {"first_sum", 0},   {"second_sum", 0},    {"peak", first}};
    json& row = minutes_.try_emplace({minute, measure, name}, fresh).first->second;
    increase(row["count"], 1);
    increase(row["first_sum"], first);
    increase(row["second_sum"], second);
    row["peak"] = std::max(row["peak"], first);
  }

  std::map<std::string, json> runs_;
  std::vector<json> steps_;
  std::map<std::vector<json>, json> totals_;
  std::map<std::vector<json>, json> freeText_;
  std::map<std::vector<json>, json> minutes_;
};

class TalliesTest : public ServiceTest {
 protected:
  std::size_t below(std::size_t limit) { return random_() % limit; }

  template <typename Value>
  Value oneOf(std::initializer_list<Value> values) {
    return values.begin()[below(values.size())];
  }

  json anyStep(int position) {
    json step = stepNumbered(position);
    json& output = step["output"];
    output["kind"] = oneOf<json>(
        {"user_message", "assistant", "tool_use", "tool_result", "result:error_max_turns", 7});
    output["session_id"] = oneOf<json>({"S1", "S2", "", nullptr});
    output["timestamp"] =
        oneOf<json>({"2026-01-31T10:00:00Z", "2026-01-30T10:00:00Z", "", 5,
                     std::string("2026-01-31T10:00:0") + std::to_string(below(10)) + "Z"});
    output["text"] = std::string(below(300), 'x');
    output["is_error"] = oneOf<json>({true, false, 1});
    if (below(2) == 0) output["tool_use_id"] = std::string("t") + std::to_string(below(20));
    if (below(3) == 0) output["tool_name"] = oneOf<json>({"Bash", "Read"});
    if (below(3) == 0)
      output["tool_input"] = oneOf<json>({{{"command", "ls"}}, {{"a", 1}, {"b", 2}}});
    return step;
  }

  // One request of any sort, to a path that ends in `suffix`.
  void sendAny(const std::string& suffix) {
    now_ += std::chrono::seconds(below(20));
    const std::string run = "/api/v1/observe/runs/" + runs_[below(runs_.size())];
    switch (below(8)) {
      case 0:
        runs_.push_back(newRun());
        break;
      case 1:
        runs_.push_back(textAt(post("/api/v1/observe/runs/start/", {{"agent_name", "a"},
                                                                    {"workflow_name", "w"},
                                                                    {"inputs", {{"said", "words"}}},
                                                                    {"metadata", json::object()}})
                                   .value(),
                               "run_id"));
        break;
      case 2:
        post(run + "/complete/" + suffix, {{"status", oneOf<json>({"success", "refused"})},
                                           {"result", {{"turns", below(9)}}},
                                           {"error", oneOf<json>({"", "why"})},
                                           {"steps", json::array()}});
        break;
      case 3: {
        json call = llmCall();
        call["model"] = oneOf<json>({"one", "two", "refused"});
        call["tokens_in"] = below(1000);
        post(run + "/llm-calls/" + suffix, {{"calls", {llmCall(), call}}, {"hardware_uuid", "H"}});
        break;
      }
      default: {
        json body = stepsBody(0);
        for (std::size_t count = below(5); count > 0; --count) {
          body["steps"].push_back(anyStep(static_cast<int>(count)));
        }
        if (below(8) == 0) body["steps"].push_back({{"step_name", "of no shape"}});
        if (below(8) == 0) {
          body["steps"].push_back(anyStep(0));
          body["steps"].back()["step_name"] = "refused";
        }
        post(run + "/steps/" + suffix, body);
      }
    }
  }

  json storedTables() {
    service_.reset();
    Database database(file("service.db"));
    return derivedTables(database);
  }

  std::minstd_rand random_;
  std::vector<std::string> runs_ = {"nobody", newRun()};
};

TEST_F(TalliesTest, EqualWhatIsStoredAfterAnyMixOfRequests) {
  refuseRows("steps", "new.step_name = 'refused'");
  refuseRows("llm_calls", "new.model = 'refused'");
  refuseRows("completions", "new.status = 'refused'");
  refuseRows("requests", "new.path LIKE '%lost'");
  for (int i = 0; i < 500; ++i) {
    sendAny(oneOf<std::string>({"", "", "", "", "", "?lost"}));
    if (i == 250) restart();
  }
  const json stored = storedTables();
  Database database(file("service.db"));
  const json recomputed = Recomputation(database).tables();
  for (const auto& [table, rows] : recomputed.items()) {
    EXPECT_GT(rows.size(), 3U) << table;
    EXPECT_EQ(stored[table], rows) << json::diff(stored[table], rows).dump(1).substr(0, 2000);
  }
  const auto refused =
      database.prepare("SELECT count(*) FROM requests WHERE status = 500").integer();
  EXPECT_GT(refused.value_or(0), 10);
}

TEST_F(TalliesTest, ForgetASendingThatTheDatabaseRefusesHalfway) {
  const struct {
    const char* table;
    const char* condition;
    std::string operation;
    json body;
  } cases[] = {{"steps", "new.position = 1", "/steps/", stepsBody(2)},
               {"llm_calls",
                "new.model = 'refused'",
                "/llm-calls/",
                {{"calls", {llmCall(), llmCall()}}, {"hardware_uuid", "H"}}},
               {"free_text",
                "new.kind = 'completion' AND new.field = 'error'",
                "/complete/",
                {{"status", "error"},
                 {"result", {{"a", "b"}}},
                 {"error", "why"},
                 {"steps", json::array()}}}};
  for (auto one : cases) {
    refuseRows(one.table, one.condition);
    if (one.body.contains("calls")) one.body["calls"][1]["model"] = "refused";
    json before = storedTables();
    restart();
    EXPECT_EQ(post("/api/v1/observe/runs/" + runs_.back() + one.operation, one.body).status, 500);
    json after = storedTables();
    const auto isOfRequests = [](const json& row) { return row["measure"] == "request"; };
    for (json* tables : {&before, &after}) {
      json& minutes = (*tables)["minutes"];
      minutes.erase(std::remove_if(minutes.begin(), minutes.end(), isOfRequests), minutes.end());
    }
    EXPECT_EQ(after, before) << one.table;
  }
}

TEST_F(TalliesTest, ForgetARequestThatCannotItselfBeStored) {
  refuseRows("requests", "new.path LIKE '%/steps/'");
  const json before = storedTables();
  restart();
  EXPECT_EQ(post(stepsPath(runs_.back()), stepsBody(2)).status, 500);
  EXPECT_EQ(storedTables(), before);
  restart();
  EXPECT_TRUE(service_->steps().empty());
  EXPECT_EQ(service_->storedRequests().size(), 1U);
}

}  // namespace
}  // namespace pelmar::service
