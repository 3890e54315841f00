#include "service/query_api.h"

#include <optional>
#include <string>
#include <vector>

#include "service/query_parameters.h"
#include "service/replies.h"

namespace pelmar::service {
namespace {

constexpr std::string_view kQueryPath = "/api/local/";
constexpr std::string_view kRunsPath = "/api/local/runs/";

// "next" is what to ask for as "after" to go on, or null behind a page that was not full.
HttpReply pageReply(std::vector<json> rows, Page page) {
  const bool isFull = static_cast<std::int64_t>(rows.size()) == page.limit;
  json next = isFull ? rows.back().at("id") : json(nullptr);
  return jsonReply({{"items", std::move(rows)}, {"next", std::move(next)}});
}

HttpReply answerRunQuery(std::string_view rest, Page page, Store& store, Queries& queries) {
  const std::size_t slash = rest.find('/');
  const std::string_view runId = rest.substr(0, slash);
  const std::string_view what = slash == std::string_view::npos ? "" : rest.substr(slash + 1);
  if (what != "steps" && what != "llm-calls") return errorReply(404, "there is no such query");
  if (!store.findRun(runId)) return errorReply(404, "the run is unknown");
  return pageReply(what == "steps" ? queries.steps(runId, page) : queries.llmCalls(runId, page),
                   page);
}

}  // namespace

bool isQueryPath(std::string_view path) { return path.substr(0, kQueryPath.size()) == kQueryPath; }

HttpReply answerQuery(const HttpRequest& request, Store& store, Queries& queries) {
  if (request.method != "GET") return errorReply(404, "there is no such query");
  const auto after = numberAt(request, "after", 0, 0);
  if (!after) return keyErrorReply(400, "must be a row id", "after");
  const auto limit = limitOf(request);
  if (!limit) return badLimit();
  const Page page{*after, *limit};
  const std::string_view path = request.path;
  if (path == "/api/local/summary") return jsonReply(queries.summary());
  if (path == "/api/local/runs") return pageReply(queries.runs(page), page);
  if (path == "/api/local/requests") return pageReply(queries.requests(page), page);
  if (path.substr(0, kRunsPath.size()) == kRunsPath) {
    return answerRunQuery(path.substr(kRunsPath.size()), page, store, queries);
  }
  return errorReply(404, "there is no such query");
}

}  // namespace pelmar::service
