#pragma once

// Store keeps what agents reported, exactly as often as it came: it never drops a double,
// because seeing one is the point. A request is stored whole or not at all; requests share
// transactions, which are what a write costs most by.
// Not locked: one user at a time.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/dates.h"
#include "platform/json.h"
#include "service/database.h"
#include "service/tallies.h"

namespace pelmar::service {

// The UTC day of `time`, such as 2026-01-31, whatever the calendar of the user.
std::string utcDay(TimePoint time);

// A request as the table of requests keeps it.
struct RequestRecord {
  TimePoint receivedAt = {};
  std::string method = {};
  std::string target = {};
  json headers = json::array();  // pairs of name and value, secrets masked
  std::string body = {};
  int status = 0;  // 0: nothing was answered
  std::int64_t answerBytes = 0;
  std::chrono::microseconds duration{0};
};

// A stored run. Points into the text that it was found by.
struct RunRow {
  std::string_view runId = {};
  std::int64_t row = 0;
};

class Store {
 public:
  // Null when the file cannot be opened or is no database of this service; `error` says why.
  static std::unique_ptr<Store> open(const std::filesystem::path& file, std::string& error);

  // Around a request. What is stored between can be read at once on this connection, and by
  // others after flush().
  bool begin();
  bool commit() { return release_.run(); }
  void rollback();

  // Ends the transaction that the requests so far share, if there is one. Called at least every
  // kGroupLimit requests by begin() itself.
  void flush();
  bool isUnflushed() const { return database_.isInTransaction(); }

  // The stored run, or none.
  std::optional<RunRow> findRun(std::string_view runId);

  // The stored run, an object of its columns, or none.
  std::optional<json> findDailyRun(std::string_view agentSlug, std::string_view date);

  // Each returns whether it was stored. The bodies have passed their checks. The new run's
  // columns are put into `run`.
  bool addDailyRun(const json& body, TimePoint now, json& run);
  bool addSessionRun(const json& body, TimePoint now, json& run);
  bool addSteps(const RunRow& run, const json& body, TimePoint now);
  bool addLlmCalls(const RunRow& run, const json& body, TimePoint now);
  bool addCompletion(const RunRow& run, const json& body, TimePoint now);
  bool addHeartbeat(std::string_view agentSlug, const json& body, TimePoint now);
  bool addRequest(const RequestRecord& request);

  Database& database() { return database_; }

 private:
  explicit Store(Database database);

  static constexpr int kGroupLimit = 100;

  bool isPrepared() const;
  bool addRun(json& run, const json& body);
  std::int64_t nextRequest();

  Database database_;
  Tallies tallies_;
  int grouped_ = 0;
  Statement begin_;
  Statement savepoint_;
  Statement release_;
  Statement rollbackTo_;
  Statement commit_;
  Statement rollback_;
  Statement lastRequest_;
  Statement findRun_;
  Statement findDailyRun_;
  Statement addRun_;
  Statement addStep_;
  Statement addLlmCall_;
  Statement addCompletion_;
  Statement addHeartbeat_;
  Statement addRequest_;
};

}  // namespace pelmar::service
