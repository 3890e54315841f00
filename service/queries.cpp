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
          "(SELECT count(*) FROM requests) AS requests, "
          "(SELECT coalesce(sum(body_bytes), 0) FROM requests) AS bytes_received")),
      stepsByName_(database.prepare(
          "SELECT step_name AS name, count(*) AS count FROM steps GROUP BY step_name")),
      stepsByKind_(
          database.prepare("SELECT kind AS name, count(*) AS count FROM steps GROUP BY kind")),
      llmCallsByModel_(
          database.prepare("SELECT model, count(*) AS calls, sum(tokens_in) AS tokens_in, "
                           "sum(tokens_out) AS tokens_out FROM llm_calls GROUP BY model")),
      completionsByStatus_(database.prepare(
          "SELECT status AS name, count(*) AS count FROM completions GROUP BY status")),
      requestsByStatus_(
          database.prepare("SELECT CAST(status AS TEXT) AS name, count(*) AS count FROM requests "
                           "GROUP BY status")) {}

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
