#include "service/queries.h"

#include <string>

namespace pelmar::service {
namespace {

// Rows of the columns "name" and "count" as one object.
json countsByName(const std::vector<json>& rows) {
  json counts = json::object();
  for (const json& row : rows) counts[textAt(row, "name")] = row.at("count");
  return counts;
}

}  // namespace

Queries::Queries(Database& database)
    : runs_(database.prepare(
          "SELECT runs.*, "
          "(SELECT count(*) FROM steps WHERE steps.run_id = runs.run_id) AS steps, "
          "(SELECT count(*) FROM llm_calls WHERE llm_calls.run_id = runs.run_id) AS llm_calls "
          "FROM runs WHERE id > ? ORDER BY id LIMIT ?")),
      steps_(
          database.prepare("SELECT * FROM steps WHERE run_id = ? AND id > ? ORDER BY id LIMIT ?")),
      llmCalls_(database.prepare(
          "SELECT * FROM llm_calls WHERE run_id = ? AND id > ? ORDER BY id LIMIT ?")),
      requests_(database.prepare("SELECT * FROM requests WHERE id > ? ORDER BY id LIMIT ?")),
      allSteps_(database.prepare("SELECT * FROM steps ORDER BY id")),
      allLlmCalls_(database.prepare("SELECT * FROM llm_calls ORDER BY id")),
      completions_(database.prepare("SELECT * FROM completions ORDER BY id")),
      heartbeats_(database.prepare("SELECT * FROM heartbeats ORDER BY id")),
      totals_(database.prepare(
          "SELECT (SELECT count(*) FROM runs) AS runs, (SELECT count(*) FROM steps) AS steps, "
          "(SELECT count(*) FROM llm_calls) AS llm_calls, "
          "(SELECT count(*) FROM heartbeats) AS heartbeats, "
          "coalesce(sum(count), 0) AS requests, coalesce(sum(second_sum), 0) AS bytes_received "
          "FROM minutes WHERE measure = 'request'")),
      stepsByName_(database.prepare(
          "SELECT step_name AS name, count(*) AS count FROM steps GROUP BY step_name")),
      stepsByKind_(database.prepare("SELECT name, sum(count) AS count FROM minutes "
                                    "WHERE measure = 'event' GROUP BY name")),
      llmCallsByModel_(
          database.prepare("SELECT name AS model, sum(count) AS calls, sum(first_sum) AS "
                           "tokens_in, sum(second_sum) AS tokens_out FROM minutes "
                           "WHERE measure = 'tokens' GROUP BY name")),
      completionsByStatus_(database.prepare(
          "SELECT status AS name, count(*) AS count FROM completions GROUP BY status")),
      requestsByStatus_(database.prepare("SELECT name, sum(count) AS count FROM minutes "
                                         "WHERE measure = 'request' GROUP BY name")) {}

json Queries::summary() {
  const std::vector<json> totals = totals_.rows();
  if (totals.empty()) return json::object();
  const json& total = totals.front();
  json models = json::object();
  for (json& row : llmCallsByModel_.rows()) {
    const std::string model = textAt(row, "model");
    row.erase("model");
    models[model] = std::move(row);
  }
  return {{"runs", total.at("runs")},
          {"steps",
           {{"total", total.at("steps")},
            {"by_step_name", countsByName(stepsByName_.rows())},
            {"by_kind", countsByName(stepsByKind_.rows())}}},
          {"llm_calls", {{"total", total.at("llm_calls")}, {"by_model", std::move(models)}}},
          {"completions", {{"by_status", countsByName(completionsByStatus_.rows())}}},
          {"heartbeats", total.at("heartbeats")},
          {"requests",
           {{"total", total.at("requests")},
            {"by_status", countsByName(requestsByStatus_.rows())},
            {"bytes_received", total.at("bytes_received")}}}};
}

std::vector<json> Queries::runs(Page page) { return runs_.rows({page.after, page.limit}); }

std::vector<json> Queries::steps(std::string_view runId, Page page) {
  return steps_.rows({runId, page.after, page.limit});
}

std::vector<json> Queries::llmCalls(std::string_view runId, Page page) {
  return llmCalls_.rows({runId, page.after, page.limit});
}

std::vector<json> Queries::requests(Page page) { return requests_.rows({page.after, page.limit}); }

std::vector<json> Queries::allSteps() { return allSteps_.rows(); }
std::vector<json> Queries::allLlmCalls() { return allLlmCalls_.rows(); }
std::vector<json> Queries::completions() { return completions_.rows(); }
std::vector<json> Queries::heartbeats() { return heartbeats_.rows(); }

}  // namespace pelmar::service
