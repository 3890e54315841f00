#pragma once

// Store keeps what agents reported, exactly as often as it came: it never drops a double,
// because seeing one is the point. Every request is one transaction.
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

class Store {
 public:
  // Null when the file cannot be opened or is no database of this service; `error` says why.
  static std::unique_ptr<Store> open(const std::filesystem::path& file, std::string& error);

  bool begin() { return begin_.run(); }
  bool commit() { return commit_.run(); }
  void rollback() { rollback_.run(); }

  // The stored run, an object of its columns, or none.
  std::optional<json> findRun(std::string_view runId);
  std::optional<json> findDailyRun(std::string_view agentSlug, std::string_view date);

  // Each returns whether it was stored. The bodies have passed their checks. The new run's
  // columns are put into `run`.
  bool addDailyRun(const json& body, TimePoint now, json& run);
  bool addSessionRun(const json& body, TimePoint now, json& run);
  bool addSteps(std::string_view runId, const json& body, TimePoint now);
  bool addLlmCalls(std::string_view runId, const json& body, TimePoint now);
  bool addCompletion(std::string_view runId, const json& body, TimePoint now);
  bool addHeartbeat(std::string_view agentSlug, const json& body, TimePoint now);
  bool addRequest(const RequestRecord& request);

  Database& database() { return database_; }

 private:
  explicit Store(Database database);

  bool isPrepared() const;
  bool addRun(json& run, const json& body);

  Database database_;
  Statement begin_;
  Statement commit_;
  Statement rollback_;
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
