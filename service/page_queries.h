#pragma once

// PageQueries answers what the page asks: lists by place, so that it can draw the part that is
// seen, and figures. Each answer's shape is in docs/local-service.md. It never writes.
// Not locked: one user at a time.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json.h"
#include "service/database.h"

namespace pelmar::service {

// The rows at the places from `offset` on, at most `limit` of them.
struct Window {
  std::int64_t offset = 0;
  std::int64_t limit = 100;
};

// Which steps of a run; an empty text lets all through.
struct StepFilter {
  std::string kind = {};
  std::string tool = {};
  std::string session = {};
  std::string search = {};
  bool errorsOnly = false;
};

struct RequestFilter {
  std::string runId = {};
  bool failedOnly = false;
};

class PageQueries {
 public:
  explicit PageQueries(Database& database) : database_(database) {}

  // `today` is a UTC day; a run of that day counts as today's.
  json overview(std::string_view today);

  // Sorted by `column`; none when there is no such column.
  std::optional<json> runList(const std::string& search, const std::string& column,
                              bool isDescending, Window window);

  // The run and what its steps can be filtered by, or none.
  std::optional<json> run(std::string_view runId);

  json timeline(std::int64_t run, const StepFilter& filter, Window window);

  // At which place of the timeline the step stands.
  std::int64_t placeOf(std::int64_t step, std::int64_t run, const StepFilter& filter);

  // Positions that are missing or came twice, and steps recorded twice; the first thousand each.
  json findings(std::int64_t run);

  // The whole step, or none.
  std::optional<json> step(std::int64_t id);

  // The latest first.
  json requestList(const RequestFilter& filter, Window window);

  // The whole request, or none.
  std::optional<json> request(std::int64_t id);

  // What free text went out, and the ten largest bodies; of one run, or of all when it is empty.
  json privacy(std::string_view runId);

  // Up to `limit` rows of a table behind `after`, of one run or of all when it is empty.
  std::vector<json> exportRows(std::string_view table, std::string_view runId, std::int64_t after,
                               std::int64_t limit);

  // The row of a run, or none.
  std::optional<std::int64_t> rowOf(std::string_view runId);

 private:
  json agents(std::string_view today);
  json totals();
  json series();

  std::vector<json> rows(std::string_view sql, std::initializer_list<SqlValue> values = {}) {
    return database_.prepare(sql).rows(values);
  }

  Database& database_;
};

}  // namespace pelmar::service
