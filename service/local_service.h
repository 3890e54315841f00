#pragma once

// LocalService is the observability service of one machine: agents report to it over real
// HTTP, everything they sent can be read back, and tests can make it fail.
// All operations may be called from any thread. Once stopped it can still be read.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json.h"
#include "service/http_server.h"
#include "service/observe_api.h"
#include "service/scripts.h"

namespace pelmar::service {

struct LocalServiceOptions {
  std::filesystem::path database;
  std::string key;         // what X-Pel-Key must hold
  std::uint16_t port = 0;  // 0: the system chooses
  std::function<TimePoint()> now = std::chrono::system_clock::now;
  std::filesystem::path page = {};  // the built page's folder; empty: no page
  // Keeps every request in memory, unmasked. For tests: it grows without limit.
  bool remembersRequests = false;
};

// A request as it came, with the status it was answered (0: none).
struct ReceivedRequest {
  HttpRequest request;
  int status = 0;
};

class LocalService {
 public:
  // Listens when it returns. On failure null, and `error` says why.
  static std::unique_ptr<LocalService> start(LocalServiceOptions options, std::string& error);

  ~LocalService();
  LocalService(const LocalService&) = delete;
  LocalService& operator=(const LocalService&) = delete;

  std::string url() const;  // "http://127.0.0.1:<port>"

  // The page's address, with the token that lets it query. Whoever has it can read everything.
  std::string pageUrl() const;

  void registerDevice(Device device);

  // For the paths outside of /api/local/, see ScriptBook::add.
  void script(std::string pattern, Script script, std::optional<int> times = std::nullopt);
  void clearScripts();

  // Breaks off what is under way and returns when no request is handled any more.
  void stop();

  // True as soon as `predicate` holds, false when it does not within `limit`. Asked at once
  // and after every request, before the answer to that request is sent.
  bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds limit);

  // Empty unless the options ask to remember them.
  std::vector<ReceivedRequest> requests();

  // What is stored, in the order of arrival, as objects of the tables' columns.
  json summary();
  std::vector<json> runs();
  std::vector<json> steps();
  std::vector<json> steps(std::string_view runId);
  std::vector<json> llmCalls();
  std::vector<json> completions();
  std::vector<json> heartbeats();
  std::vector<json> storedRequests();

 private:
  class Desk;

  LocalService(std::unique_ptr<Desk> desk, std::unique_ptr<HttpServer> server);

  std::unique_ptr<Desk> desk_;
  std::unique_ptr<HttpServer> server_;  // below the desk: it must stop first
};

}  // namespace pelmar::service
