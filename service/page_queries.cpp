#include "service/page_queries.h"

#include <algorithm>
#include <array>
#include <utility>

namespace pelmar::service {
namespace {

json firstOr(std::vector<json> rows, json otherwise) {
  return rows.empty() ? std::move(otherwise) : std::move(rows.front());
}

std::optional<json> firstOf(std::vector<json> rows) {
  if (rows.empty()) return std::nullopt;
  return std::move(rows.front());
}

// Text as LIKE finds it anywhere, with "\" as its escape.
std::string containing(std::string_view text) {
  std::string pattern = "%";
  for (const char letter : text) {
    if (letter == '%' || letter == '_' || letter == '\\') pattern += '\\';
    pattern += letter;
  }
  return pattern + "%";
}

// As `containing`, of the text as it stands inside JSON.
std::string containingInJson(const std::string& text) {
  const std::string quoted = compactJson(text);
  return containing(std::string_view(quoted).substr(1, quoted.size() - 2));
}

// ?1 the text, ?2 the same inside JSON. Most outputs fail the cheap test of the whole; the others
// are looked at value by value, so that "text" does not find every key of that name.
#define PELMAR_STEP_HOLDS                                                                 \
  "(f.session_id LIKE ?1 ESCAPE '\\' OR f.tool_name LIKE ?1 ESCAPE '\\' OR EXISTS ("      \
  "SELECT 1 FROM steps s WHERE s.id = f.id AND s.output LIKE ?2 ESCAPE '\\' AND EXISTS (" \
  "SELECT 1 FROM json_tree(s.output) j WHERE j.type = 'text' AND j.key NOT IN ('kind', "  \
  "'timestamp', 'source', 'hardware_uuid') AND j.atom LIKE ?1 ESCAPE '\\')))"

// ?1 to ?7 as bound by StepValues.
#define PELMAR_FILTERED_STEPS                                             \
  "FROM step_facts f WHERE f.run = ?3 AND (?4 = '' OR f.kind = ?4) AND "  \
  "(?5 = '' OR f.tool_name = ?5) AND (?6 = '' OR f.session_id = ?6) AND " \
  "(?7 = 0 OR f.is_error) AND (?1 = '%%' OR " PELMAR_STEP_HOLDS ")"

#define PELMAR_FILTERED_REQUESTS \
  "FROM requests WHERE path >= ?1 AND path < ?2 AND (?3 = 0 OR status NOT BETWEEN 200 AND 299)"

// The paths that a request for the run has, as a range.
struct PathRange {
  std::string begin = {};
  std::string end = {};
};

PathRange pathsOf(std::string_view runId) {
  if (runId.empty()) return {"", "\x7f"};
  const std::string path = "/api/v1/observe/runs/" + std::string(runId);
  return {path + "/", path + "0"};  // "0" is the character behind "/"
}

}  // namespace

json PageQueries::overview(std::string_view today) {
  return {{"totals", totals()}, {"agents", agents(today)}, {"series", series()}};
}

json PageQueries::totals() {
  return firstOr(
      rows("SELECT (SELECT count(*) FROM (SELECT DISTINCT session_id FROM steps)) AS sessions, "
           "(SELECT count(*) FROM runs) AS runs, "
           "coalesce(sum(count) FILTER (WHERE measure = 'event'), 0) AS steps, "
           "coalesce(sum(count) FILTER (WHERE measure = 'tokens'), 0) AS llm_calls, "
           "coalesce(sum(first_sum) FILTER (WHERE measure = 'tokens'), 0) AS tokens_in, "
           "coalesce(sum(second_sum) FILTER (WHERE measure = 'tokens'), 0) AS tokens_out, "
           "coalesce(sum(count) FILTER (WHERE measure = 'request'), 0) AS requests, "
           "coalesce(sum(count) FILTER (WHERE measure = 'request' AND "
           "CAST(name AS INTEGER) NOT BETWEEN 200 AND 299), 0) AS failed_requests, "
           "coalesce(sum(second_sum) FILTER (WHERE measure = 'request'), 0) AS bytes_sent "
           "FROM minutes"),
      json::object());
}

json PageQueries::agents(std::string_view today) {
  return rows(
      "WITH names AS (SELECT DISTINCT agent_slug AS slug FROM runs "
      "UNION SELECT DISTINCT agent_slug FROM heartbeats) "
      "SELECT slug AS agent_slug, "
      "(SELECT received_at FROM heartbeats WHERE agent_slug = slug ORDER BY id DESC LIMIT 1) "
      "AS last_heartbeat, "
      "(SELECT machine_id FROM heartbeats WHERE agent_slug = slug ORDER BY id DESC LIMIT 1) "
      "AS machine_id, "
      "(SELECT agent_name FROM runs WHERE agent_slug = slug ORDER BY id DESC LIMIT 1) "
      "AS agent_name, "
      "(SELECT count(*) FROM runs WHERE agent_slug = slug) AS runs, "
      "(SELECT count(*) FROM runs WHERE agent_slug = slug AND date = ?) AS runs_today "
      "FROM names ORDER BY slug",
      {today});
}

// Of a long time, coarser: a plot has no room for more than some thousand points.
json PageQueries::series() {
  struct Unit {
    const char* name;
    std::int64_t seconds;
    std::int64_t prefix;
    const char* rest;
  };
  constexpr std::array<Unit, 3> kUnits = {{{"minute", 60, 16, ":00Z"},
                                           {"hour", 3600, 13, ":00:00Z"},
                                           {"day", 86400, 10, "T00:00:00Z"}}};
  constexpr std::int64_t kMaxPoints = 1500;
  const json span = firstOr(rows("SELECT coalesce(CAST(strftime('%s', max(minute)) AS INTEGER) - "
                                 "CAST(strftime('%s', min(minute)) AS INTEGER), 0) AS seconds "
                                 "FROM minutes"),
                            {{"seconds", 0}});
  const Unit* unit = &kUnits.front();
  while (unit != &kUnits.back() && span.at("seconds") > kMaxPoints * unit->seconds) ++unit;
  return {{"unit", unit->name},
          {"points",
           rows("SELECT substr(minute, 1, ?1) || ?2 AS time, measure, name, sum(count) AS count, "
                "sum(first_sum) AS first_sum, sum(second_sum) AS second_sum, max(peak) AS peak "
                "FROM minutes GROUP BY 1, 2, 3 ORDER BY 1",
                {unit->prefix, std::string_view(unit->rest)})}};
}

std::optional<json> PageQueries::runList(const std::string& search, const std::string& column,
                                         bool isDescending, Window window) {
  constexpr std::array<std::string_view, 11> kColumns = {
      "kind",  "agent",      "status", "session_id", "started_at", "first_event",
      "steps", "last_event", "errors", "tokens_in",  "tokens_out"};
  if (std::find(kColumns.begin(), kColumns.end(), column) == kColumns.end()) return std::nullopt;
  const std::string from =
      "FROM runs r LEFT JOIN run_totals t ON t.run = r.id LEFT JOIN hits ON hits.run = r.id "
      "WHERE ?1 = '%%' OR hits.matches > 0 OR r.session_id LIKE ?1 ESCAPE '\\' OR "
      "r.run_id LIKE ?1 ESCAPE '\\' OR r.agent_slug LIKE ?1 ESCAPE '\\' ";
  const std::string hits =
      "WITH hits AS (SELECT f.run, count(*) AS matches FROM step_facts f WHERE ?1 <> '%%' "
      "AND " PELMAR_STEP_HOLDS " GROUP BY f.run) ";
  const std::string list =
      hits +
      "SELECT r.id, r.run_id, r.kind, r.agent_slug, r.agent_name, "
      "iif(r.agent_slug = '', r.agent_name, r.agent_slug) AS agent, r.session_id, r.date, "
      "r.started_at, coalesce((SELECT status FROM completions c WHERE c.run_id = r.run_id "
      "ORDER BY c.id DESC LIMIT 1), 'open') AS status, t.first_event, t.last_event, "
      "coalesce(t.steps, 0) AS steps, coalesce(t.errors, 0) AS errors, "
      "coalesce(t.llm_calls, 0) AS llm_calls, coalesce(t.tokens_in, 0) AS tokens_in, "
      "coalesce(t.tokens_out, 0) AS tokens_out, hits.matches, count(*) OVER () AS total " +
      from + "ORDER BY " + column + (isDescending ? " DESC" : "") +
      ", r.id DESC LIMIT ?3 OFFSET ?4";
  std::vector<json> items =
      rows(list, {std::string_view(containing(search)), std::string_view(containingInJson(search)),
                  window.limit, window.offset});
  const json total = items.empty() ? json(0) : items.front().at("total");
  for (json& item : items) item.erase("total");
  return json{{"total", total}, {"items", std::move(items)}};
}

std::optional<std::int64_t> PageQueries::rowOf(std::string_view runId) {
  const auto row = firstOf(rows("SELECT id FROM runs WHERE run_id = ?", {runId}));
  if (!row) return std::nullopt;
  return row->at("id").get<std::int64_t>();
}

std::optional<json> PageQueries::run(std::string_view runId) {
  auto found = firstOf(rows("SELECT * FROM runs WHERE run_id = ?", {runId}));
  if (!found) return std::nullopt;
  json& run = *found;
  const std::int64_t row = run.at("id").get<std::int64_t>();
  run["totals"] = firstOr(rows("SELECT * FROM run_totals WHERE run = ?", {row}), nullptr);
  run["completions"] = rows("SELECT * FROM completions WHERE run_id = ? ORDER BY id", {runId});
  run["kinds"] = rows(
      "SELECT kind AS name, count(*) AS count FROM step_facts WHERE run = ? "
      "GROUP BY kind ORDER BY 2 DESC, 1",
      {row});
  run["tools"] = rows(
      "SELECT tool_name AS name, count(*) AS count FROM step_facts WHERE run = ? "
      "AND tool_name <> '' GROUP BY tool_name ORDER BY 2 DESC, 1 LIMIT 500",
      {row});
  run["sessions"] = rows(
      "SELECT session_id AS name, count(*) AS count FROM step_facts "
      "WHERE run = ? GROUP BY session_id ORDER BY min(id) LIMIT 500",
      {row});
  run["largest_call"] = firstOr(rows("SELECT coalesce(max(coalesce(tokens_in, 0) + "
                                     "coalesce(tokens_out, 0)), 0) AS tokens FROM step_facts "
                                     "WHERE run = ? AND tokens_in IS NOT NULL",
                                     {row}),
                                {{"tokens", 0}})
                            .at("tokens");
  return found;
}

json PageQueries::timeline(std::int64_t run, const StepFilter& filter, Window window) {
  const std::string like = containing(filter.search);
  const std::string likeInJson = containingInJson(filter.search);
  const std::int64_t errorsOnly = filter.errorsOnly ? 1 : 0;
  const json total = firstOr(rows("SELECT count(*) AS total " PELMAR_FILTERED_STEPS,
                                  {std::string_view(like), std::string_view(likeInJson), run,
                                   std::string_view(filter.kind), std::string_view(filter.tool),
                                   std::string_view(filter.session), errorsOnly}),
                             {{"total", 0}});
  std::vector<json> items = rows(
      "SELECT f.*, (SELECT p.id FROM step_facts p WHERE f.tool_use_id <> '' AND "
      "p.tool_use_id = f.tool_use_id AND p.kind = CASE f.kind WHEN 'tool_use' THEN 'tool_result' "
      "WHEN 'tool_result' THEN 'tool_use' END LIMIT 1) AS partner " PELMAR_FILTERED_STEPS
      " ORDER BY f.id LIMIT ?8 OFFSET ?9",
      {std::string_view(like), std::string_view(likeInJson), run, std::string_view(filter.kind),
       std::string_view(filter.tool), std::string_view(filter.session), errorsOnly, window.limit,
       window.offset});
  return {{"total", total.at("total")}, {"items", std::move(items)}};
}

std::int64_t PageQueries::placeOf(std::int64_t step, std::int64_t run, const StepFilter& filter) {
  const std::string like = containing(filter.search);
  const std::string likeInJson = containingInJson(filter.search);
  const json place =
      firstOr(rows("SELECT count(*) AS place " PELMAR_FILTERED_STEPS " AND f.id < ?8",
                   {std::string_view(like), std::string_view(likeInJson), run,
                    std::string_view(filter.kind), std::string_view(filter.tool),
                    std::string_view(filter.session), std::int64_t{filter.errorsOnly}, step}),
              {{"place", 0}});
  return place.at("place").get<std::int64_t>();
}

// Positions count from 0 in a transcript. A session's run holds one transcript; in a daily run
// each session is taken for one. Earlier positions may stand in an earlier run of the session.
json PageQueries::findings(std::int64_t run) {
  constexpr const char* kNeighbours =
      "WITH own AS (SELECT id, position, iif((SELECT kind FROM runs WHERE id = ?1) = 'daily', "
      "session_id, '') AS transcript, session_id FROM step_facts WHERE run = ?1), "
      "pairs AS (SELECT id, position, transcript, session_id, lag(position, 1, -1) OVER "
      "(PARTITION BY transcript ORDER BY position, id) AS before FROM own) ";
  const std::string missing =
      std::string(kNeighbours) +
      "SELECT session_id, before + 1 AS first, position - 1 AS last, id AS next_step FROM pairs "
      "WHERE position > before + 1 AND NOT (before = -1 AND EXISTS (SELECT 1 FROM steps s "
      "JOIN runs r ON r.run_id = s.run_id WHERE s.session_id = pairs.session_id AND r.id <> ?1 "
      "AND s.position < pairs.position)) ORDER BY id LIMIT 1000";
  const std::string twice = std::string(kNeighbours) +
                            "SELECT session_id, position, id AS step FROM pairs "
                            "WHERE position = before ORDER BY id LIMIT 1000";
  return {{"missing", rows(missing, {run})},
          {"twice", rows(twice, {run})},
          {"recorded_twice",
           rows("SELECT min(id) AS first, max(id) AS step, count(*) AS count, session_id, kind "
                "FROM step_facts WHERE run = ? GROUP BY digest, session_id, kind, timestamp, bytes "
                "HAVING count(*) > 1 ORDER BY 2 LIMIT 1000",
                {run})}};
}

std::optional<json> PageQueries::step(std::int64_t id) {
  return firstOf(
      rows("SELECT s.*, f.request, f.place, f.turn, f.tool_name, f.tool_use_id, "
           "f.is_error, f.bytes, f.tokens_in, f.tokens_out FROM steps s "
           "JOIN step_facts f ON f.id = s.id WHERE s.id = ?",
           {id}));
}

json PageQueries::requestList(const RequestFilter& filter, Window window) {
  const PathRange paths = pathsOf(filter.runId);
  const std::int64_t failedOnly = filter.failedOnly ? 1 : 0;
  const json total =
      firstOr(rows("SELECT count(*) AS total " PELMAR_FILTERED_REQUESTS,
                   {std::string_view(paths.begin), std::string_view(paths.end), failedOnly}),
              {{"total", 0}});
  // "+" keeps the index by path out where every path is wanted: the order is by id.
  const std::string list =
      std::string(
          "SELECT id, received_at, method, path, status, body_bytes, answer_bytes, "
          "duration_us FROM requests WHERE ") +
      (filter.runId.empty() ? "+" : "") +
      "path >= ?1 AND path < ?2 AND (?3 = 0 OR status NOT BETWEEN 200 AND 299) "
      "ORDER BY id DESC LIMIT ?4 OFFSET ?5";
  return {{"total", total.at("total")},
          {"items", rows(list, {std::string_view(paths.begin), std::string_view(paths.end),
                                failedOnly, window.limit, window.offset})}};
}

std::optional<json> PageQueries::request(std::int64_t id) {
  return firstOf(rows("SELECT * FROM requests WHERE id = ?", {id}));
}

json PageQueries::privacy(std::string_view runId) {
  const std::int64_t row = rowOf(runId).value_or(0);
  const PathRange paths = pathsOf(runId);
  return {{"fields", rows("SELECT kind, field, category, sum(count) AS count, sum(bytes) AS bytes "
                          "FROM free_text WHERE ?1 = 0 OR run = ?1 GROUP BY 1, 2, 3 "
                          "ORDER BY 5 DESC",
                          {row})},
          {"categories", rows("SELECT category, sum(bytes) AS bytes FROM free_text "
                              "WHERE ?1 = 0 OR run = ?1 GROUP BY 1 ORDER BY 2 DESC",
                              {row})},
          {"largest", rows("SELECT id, received_at, method, path, status, body_bytes "
                           "FROM requests WHERE id IN (SELECT id FROM requests WHERE path >= ?1 "
                           "AND path < ?2 ORDER BY body_bytes DESC, id LIMIT 10) "
                           "ORDER BY body_bytes DESC, id",
                           {std::string_view(paths.begin), std::string_view(paths.end)})}};
}

std::vector<json> PageQueries::exportRows(std::string_view table, std::string_view runId,
                                          std::int64_t after, std::int64_t limit) {
  return rows("SELECT * FROM " + std::string(table) + " WHERE id > ?1 AND " +
                  (runId.empty() ? "?2 = ''" : "run_id = ?2") + " ORDER BY id LIMIT ?3",
              {after, runId, limit});
}

}  // namespace pelmar::service
