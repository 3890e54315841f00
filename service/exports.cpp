#include "service/exports.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "service/query_parameters.h"
#include "service/replies.h"

namespace pelmar::service {
namespace {

constexpr std::int64_t kRowsAtOnce = 500;

struct Table {
  std::string_view name;
  std::string_view item;
};

constexpr std::array<Table, 4> kTables = {
    {{"runs", "run"}, {"steps", "step"}, {"llm_calls", "llm_call"}, {"completions", "completion"}}};

constexpr std::array<const char*, 9> kCsvColumns = {"run_id",        "position",   "step_name",
                                                    "kind",          "session_id", "timestamp",
                                                    "hardware_uuid", "output",     "received_at"};

std::string jsonLine(std::string_view item, json row) {
  row.erase("id");
  return compactJson({{"type", item}, {"row", std::move(row)}}) + "\n";
}

std::string csvHead() {
  std::string head;
  for (const char* column : kCsvColumns) head += std::string(head.empty() ? "" : ",") + column;
  return head + "\r\n";
}

std::string csvLine(const json& row) {
  std::string line;
  for (const char* column : kCsvColumns) {
    if (!line.empty()) line += ',';
    line += csvField(row.at(column));
  }
  return line + "\r\n";
}

// What of the table is there when it begins, part by part; false when the reader is gone.
bool writeTable(const Table& table, const std::string& runId, PageQueries& queries,
                const Locked& locked, const BodyWriter& write,
                const std::function<std::string(const Table&, json)>& textOf) {
  std::int64_t after = 0;
  while (true) {
    std::vector<json> rows;
    locked([&] { rows = queries.exportRows(table.name, runId, after, kRowsAtOnce); });
    if (rows.empty()) return true;
    after = rows.back().at("id").get<std::int64_t>();
    std::string text;
    for (json& row : rows) text += textOf(table, std::move(row));
    if (!write(text)) return false;
  }
}

}  // namespace

std::string csvField(const json& value) {
  if (value.is_number()) return compactJson(value);
  const std::string text = value.is_string() ? value.get<std::string>() : compactJson(value);
  std::string field = "\"";
  if (!text.empty() && std::string_view("=+-@\t\r").find(text.front()) != std::string_view::npos) {
    field += '\'';
  }
  for (const char letter : text) {
    if (letter == '"') field += '"';
    field += letter;
  }
  return field + "\"";
}

std::optional<HttpReply> answerExport(const HttpRequest& request, PageQueries& queries,
                                      Locked locked) {
  const bool isCsv = request.path == "/api/local/export.csv";
  if (request.method != "GET" || (!isCsv && request.path != "/api/local/export.jsonl")) {
    return std::nullopt;
  }
  const std::string runId = parameter(request, "run");
  bool isKnown = true;
  locked([&] { isKnown = runId.empty() || queries.rowOf(runId).has_value(); });
  if (!isKnown) return errorReply(404, "the run is unknown");
  const std::string name =
      (runId.empty() ? "everything" : "run-" + runId) + (isCsv ? ".csv" : ".jsonl");
  HttpReply reply{.contentType = isCsv ? "text/csv; charset=utf-8" : "application/jsonl"};
  reply.headers = {{"Content-Disposition", "attachment; filename=\"" + name + "\""}};
  reply.stream = [isCsv, runId, &queries, locked = std::move(locked)](const BodyWriter& write) {
    if (isCsv) {
      if (write(csvHead())) {
        writeTable(kTables[1], runId, queries, locked, write,
                   [](const Table&, const json& row) { return csvLine(row); });
      }
      return;
    }
    for (const Table& table : kTables) {
      if (!writeTable(table, runId, queries, locked, write, [](const Table& of, json row) {
            return jsonLine(of.item, std::move(row));
          })) {
        return;
      }
    }
  };
  return reply;
}

}  // namespace pelmar::service
