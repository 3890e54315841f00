#pragma once

// The agent's handle on the service's run-reporting API. Failures are answered as none or false;
// what is known of their cause is written here, to the activity log and the system log. Callers
// try again later.

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/http.h"

namespace pelmar {

// Each field is empty when the answer lacks it; an answer without a run id is still an answer.
struct StartRunResult {
  std::string runID;
  std::string workflowID;
  std::string startedAt;
};

struct DailyRunResult {
  std::string runID;
  std::string workflowID;
  std::string startedAt;
  std::string date;      // the service's day of the run, yyyy-MM-dd
  bool created = false;  // whether this call made the run
};

// Every operation blocks: `post` and all that go through it for at most `maxAttempts` times
// (`timeout` + 5 s) and the pauses between them. Copies share one kept connection. Run ids and
// slugs go into paths as they are.
class ObserveClient {
 public:
  std::string apiUrl;
  std::string apiKey;
  double timeout = 30.0;     // seconds
  int maxAttempts = 3;       // below 1 is a programming error and ends the process
  double backoffBase = 1.0;  // seconds before the second attempt, doubled before each further one

  ObserveClient(std::string serviceUrl, std::string key)
      : apiUrl(std::move(serviceUrl)), apiKey(std::move(key)) {}

  // None when the request failed. `sessionID` and `agentSlug` are left out when empty.
  std::optional<StartRunResult> startRun(const std::string& agentName,
                                         const std::string& workflowName, nlohmann::json inputs,
                                         nlohmann::json metadata, const std::string& sessionID,
                                         const std::string& agentSlug) const;

  // The agent's run of the current day, found or created by the service; none when the request
  // failed.
  std::optional<DailyRunResult> startDailyRun(const std::string& agentSlug,
                                              const std::string& agentType) const;

  // `steps` and `calls` are arrays of objects; an empty one is true without a request.
  bool recordSteps(const std::string& runID, nlohmann::json steps) const;
  bool recordLLMCalls(const std::string& runID, nlohmann::json calls) const;

  bool completeRun(const std::string& runID, const std::string& status,
                   nlohmann::json result) const;

  // One request outside of the retries and both logs, for at most 15 s. False when the service
  // refused it (status 400 or above) or did not answer in time, or the URL is none; true otherwise,
  // also when the service could not be reached.
  bool heartbeat(const std::string& agentSlug) const;

  // The same request, with what came of it; none when the URL is none.
  std::optional<HttpExchange> heartbeatExchange(const std::string& agentSlug) const;

  // POSTs `body` to `path` below `apiUrl`, up to `maxAttempts` times. The answer's object (empty
  // when a 2xx answer holds none), or none: no URL or key, a 4xx answer, or no 2xx in all attempts.
  // `summary` only goes to the activity log.
  std::optional<nlohmann::json> post(const std::string& path, const nlohmann::json& body,
                                     const std::string& summary) const;

 private:
  // One POST, for at most `deadline` seconds.
  HttpExchange doPostOnce(const std::string& url, const std::string& body, double deadline) const;
  bool recordAll(const std::string& runID, const char* operation, const char* key, const char* noun,
                 nlohmann::json records) const;

  std::shared_ptr<HttpClient> http_ = std::make_shared<HttpClient>();
};

// The path of an `operation` (such as "/steps/") on the run `runID`.
std::string runPath(const std::string& runID, const char* operation);

// The URL text of `path` (which begins with "/") below `apiUrl`, joined by exactly one "/".
std::string endpointUrl(const std::string& apiUrl, const std::string& path);

// The pause after the `attempt`-th failed attempt (from 1), in seconds.
double backoffAfter(int attempt, double backoffBase);

}  // namespace pelmar
