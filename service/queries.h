#pragma once

// Queries reads back what the store holds, for the query endpoints and for tests.
// Every row is an object of the table's columns. It never writes.
// Not locked: one user at a time.

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/json.h"
#include "service/database.h"

namespace pelmar::service {

// The rows with an id greater than `after`, at most `limit` of them, in the order of arrival.
struct Page {
  std::int64_t after = 0;
  std::int64_t limit = -1;  // -1: all
};

class Queries {
 public:
  explicit Queries(Database& database);

  // Counts over everything; its shape is in docs/local-service.md.
  json summary();

  std::vector<json> runs(Page page);
  std::vector<json> steps(std::string_view runId, Page page);
  std::vector<json> llmCalls(std::string_view runId, Page page);
  std::vector<json> requests(Page page);

  // Of all runs.
  std::vector<json> allSteps();
  std::vector<json> allLlmCalls();
  std::vector<json> completions();
  std::vector<json> heartbeats();

 private:
  Statement runs_;
  Statement steps_;
  Statement llmCalls_;
  Statement requests_;
  Statement allSteps_;
  Statement allLlmCalls_;
  Statement completions_;
  Statement heartbeats_;
  Statement totals_;
  Statement stepsByName_;
  Statement stepsByKind_;
  Statement llmCallsByModel_;
  Statement completionsByStatus_;
  Statement requestsByStatus_;
};

}  // namespace pelmar::service
