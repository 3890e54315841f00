#include "service/query_api.h"

#include <charconv>
#include <optional>
#include <string>
#include <vector>

#include "service/replies.h"

namespace pelmar::service {
namespace {

constexpr std::string_view kQueryPath = "/api/local/";
constexpr std::string_view kRunsPath = "/api/local/runs/";
constexpr std::int64_t kDefaultLimit = 100;
constexpr std::int64_t kMaxLimit = 1000;

// The number at `key` of the query, `byDefault` when it is not there, none when it is no
// number from `least` on.
std::optional<std::int64_t> numberAt(const HttpRequest& request, const char* key,
                                     std::int64_t byDefault, std::int64_t least) {
  const auto found = request.query.find(key);
  if (found == request.query.end()) return byDefault;
  const std::string& text = found->second;
  std::int64_t number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || number < least) {
    return std::nullopt;
  }
  return number;
}

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
  const auto limit = numberAt(request, "limit", kDefaultLimit, 1);
  if (!limit || *limit > kMaxLimit) {
    return keyErrorReply(400, "must be a number from 1 to 1000", "limit");
  }
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
