#pragma once

// Tallies keeps the tables that repeat what is stored in a form that is quick to ask: facts of
// each step, totals of each run, free text by field, counts by minute. It is called within the
// transaction that stores the thing itself.
// Each returns whether it was stored. Not locked: one user at a time.

#include <cstdint>
#include <string_view>

#include "platform/json.h"
#include "service/database.h"

namespace pelmar::service {

// A step that was just stored.
struct StoredStep {
  std::int64_t run = 0;      // the run's row
  std::int64_t request = 0;  // the row that its request will get
  std::int64_t place = 0;    // within the request, from 0
  std::int64_t position = 0;
  std::string_view kind = {};
  std::string_view sessionId = {};
  std::string_view timestamp = {};
  std::string_view outputText = {};
  std::string_view receivedAt = {};
};

class Tallies {
 public:
  explicit Tallies(Database& database);

  bool isPrepared() const;

  bool addStep(const StoredStep& step, const json& output);
  bool addLlmCall(std::int64_t run, const json& call, std::string_view receivedAt);
  // Of a run's start or completion.
  bool addFreeText(std::int64_t run, std::string_view kind, std::string_view field,
                   std::string_view category, std::int64_t bytes);
  bool addRequest(std::string_view receivedAt, int status, std::int64_t bytes,
                  std::int64_t microseconds);

 private:
  bool addMinute(std::string_view time, std::string_view measure, std::string_view name,
                 std::int64_t first, std::int64_t second);
  std::string toolOf(std::string_view toolUseId);
  std::int64_t turnOf(const StoredStep& step);

  Statement addFacts_;
  Statement findTurn_;
  Statement findLastTurn_;
  Statement findTool_;
  Statement addRunTotals_;
  Statement addCallToStep_;
  Statement addFreeText_;
  Statement addMinute_;
};

}  // namespace pelmar::service
