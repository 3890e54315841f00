#include "service/page_api.h"

#include <string>

#include "service/query_parameters.h"
#include "service/replies.h"

namespace pelmar::service {
namespace {

constexpr std::string_view kRunsPath = "/api/local/runs/";
constexpr std::string_view kStepsPath = "/api/local/steps/";
constexpr std::string_view kRequestsPath = "/api/local/requests/";

bool startsWith(std::string_view text, std::string_view begin) {
  return text.substr(0, begin.size()) == begin;
}

HttpReply foundReply(const std::optional<json>& found, const char* otherwise) {
  return found ? jsonReply(*found) : errorReply(404, otherwise);
}

StepFilter stepFilterOf(const HttpRequest& request) {
  return {.kind = parameter(request, "kind"),
          .tool = parameter(request, "tool"),
          .session = parameter(request, "session"),
          .search = parameter(request, "search"),
          .errorsOnly = parameter(request, "errors") == "1"};
}

// What an operation on a run is, or none when it is none of the page's.
std::optional<HttpReply> answerRun(const HttpRequest& request, Window window,
                                   PageQueries& queries) {
  const std::string_view rest = std::string_view(request.path).substr(kRunsPath.size());
  const std::size_t slash = rest.find('/');
  const std::string_view runId = rest.substr(0, slash);
  const std::string_view what = slash == std::string_view::npos ? "" : rest.substr(slash + 1);
  if (!what.empty() && what != "timeline" && what != "place" && what != "findings" &&
      what != "privacy") {
    return std::nullopt;
  }
  const auto run = queries.rowOf(runId);
  if (!run) return errorReply(404, "the run is unknown");
  if (what == "timeline") return jsonReply(queries.timeline(*run, stepFilterOf(request), window));
  if (what == "findings") return jsonReply(queries.findings(*run));
  if (what == "privacy") return jsonReply(queries.privacy(runId));
  if (what.empty()) return foundReply(queries.run(runId), "the run is unknown");
  const auto step = numberAt(request, "step", 0, 0);
  if (!step) return keyErrorReply(400, "must be a row id", "step");
  return jsonReply({{"place", queries.placeOf(*step, *run, stepFilterOf(request))}});
}

HttpReply answerRunList(const HttpRequest& request, Window window, PageQueries& queries) {
  const std::string column = parameter(request, "sort");
  const auto list =
      queries.runList(parameter(request, "search"), column.empty() ? "started_at" : column,
                      parameter(request, "order") != "asc", window);
  return list ? jsonReply(*list) : keyErrorReply(400, "is no column to sort by", "sort");
}

// The row id behind a prefix; -1, which no row has, when there is none.
std::int64_t idBehind(std::string_view prefix, std::string_view path) {
  return parseNumber(path.substr(prefix.size()), 0).value_or(-1);
}

}  // namespace

std::optional<HttpReply> answerPageQuery(const HttpRequest& request, PageQueries& queries,
                                         std::string_view today) {
  if (request.method != "GET") return std::nullopt;
  const std::string_view path = request.path;
  if (path == "/api/local/overview") return jsonReply(queries.overview(today));
  if (path == "/api/local/privacy") return jsonReply(queries.privacy({}));
  if (startsWith(path, kStepsPath)) {
    return foundReply(queries.step(idBehind(kStepsPath, path)), "the step is unknown");
  }
  if (startsWith(path, kRequestsPath)) {
    return foundReply(queries.request(idBehind(kRequestsPath, path)), "the request is unknown");
  }
  const auto limit = limitOf(request);
  if (!limit) return badLimit();
  const auto offset = numberAt(request, "offset", 0, 0);
  if (!offset) return keyErrorReply(400, "must be a place", "offset");
  const Window window{*offset, *limit};
  if (path == "/api/local/run-list") return answerRunList(request, window, queries);
  if (path == "/api/local/request-list") {
    return jsonReply(queries.requestList(
        {.runId = parameter(request, "run"), .failedOnly = parameter(request, "failed") == "1"},
        window));
  }
  if (startsWith(path, kRunsPath)) return answerRun(request, window, queries);
  return std::nullopt;
}

}  // namespace pelmar::service
