#include "service/observe_api.h"

#include <optional>

#include "service/replies.h"
#include "service/request_checks.h"

namespace pelmar::service {
namespace {

constexpr std::string_view kAgentConfigPath = "/api/pelmar/v1/endpoint/agent-config/";
constexpr std::string_view kRunsPath = "/api/v1/observe/runs/";
constexpr std::string_view kAgentsPath = "/api/v1/observe/agents/";

HttpReply refused(const BodyFault& fault) { return keyErrorReply(400, fault.error, fault.key); }

HttpReply storeFailed() { return errorReply(500, "the database refused the request"); }

HttpReply noSuchEndpoint() { return errorReply(404, "there is no such endpoint"); }

// "<id>/<operation>/" behind a prefix. The id may be empty.
struct Address {
  std::string id;
  std::string operation;
};

std::optional<Address> addressBehind(std::string_view prefix, std::string_view path) {
  if (path.substr(0, prefix.size()) != prefix || path.back() != '/') return std::nullopt;
  path = path.substr(prefix.size());
  const std::size_t slash = path.find('/');
  if (slash == std::string_view::npos || slash + 1 >= path.size()) return std::nullopt;
  return Address{std::string(path.substr(0, slash)),
                 std::string(path.substr(slash + 1, path.size() - slash - 2))};
}

}  // namespace

bool ObserveApi::isForDevices(std::string_view path) { return path == kAgentConfigPath; }

HttpReply ObserveApi::answer(const HttpRequest& request, TimePoint now) {
  if (isForDevices(request.path)) {
    return request.method == "GET" ? answerDevice(request) : noSuchEndpoint();
  }
  if (request.method != "POST") return noSuchEndpoint();
  const auto body = parseJsonObject(request.body, kMaxBodyDepth);
  if (!body) return keyErrorReply(400, "the body must be a JSON object", "");
  return answerPost(request.path, *body, now);
}

HttpReply ObserveApi::answerDevice(const HttpRequest& request) const {
  const auto process = request.query.find("process");
  if (process == request.query.end()) return keyErrorReply(400, "is missing", "process");
  bool isTokenKnown = false;
  for (const Device& device : devices_) {
    if (device.token != request.header("X-Pel-Device")) continue;
    isTokenKnown = true;
    if (device.tenant == request.header("X-Pel-Tenant") && device.process == process->second) {
      return jsonReply(device.answer);
    }
  }
  if (!isTokenKnown) return errorReply(401, "the device is unknown");
  return errorReply(404, "the device has no agent for this tenant and process");
}

HttpReply ObserveApi::answerPost(const std::string& path, const json& body, TimePoint now) {
  if (path == "/api/v1/observe/runs/start/") return startRun(body, now);
  if (path == "/api/v1/observe/runs/daily/") return findOrStartDailyRun(body, now);
  if (const auto run = addressBehind(kRunsPath, path)) {
    return record(run->id, run->operation, body, now);
  }
  const auto agent = addressBehind(kAgentsPath, path);
  if (agent && agent->operation == "heartbeat") return heartbeat(agent->id, body, now);
  return noSuchEndpoint();
}

HttpReply ObserveApi::startRun(const json& body, TimePoint now) {
  if (const auto fault = checkRunStart(body)) return refused(*fault);
  json run;
  if (!store_.addSessionRun(body, now, run)) return storeFailed();
  return jsonReply({{"run_id", run.at("run_id")},
                    {"workflow_id", run.at("workflow_id")},
                    {"started_at", run.at("started_at")}});
}

HttpReply ObserveApi::findOrStartDailyRun(const json& body, TimePoint now) {
  if (const auto fault = checkDailyRun(body)) return refused(*fault);
  json run;
  const auto existing = store_.findDailyRun(textAt(body, "agent_slug"), utcDay(now));
  if (existing) {
    run = *existing;
  } else if (!store_.addDailyRun(body, now, run)) {
    return storeFailed();
  }
  return jsonReply({{"run_id", run.at("run_id")},
                    {"workflow_id", run.at("workflow_id")},
                    {"started_at", run.at("started_at")},
                    {"date", run.at("date")},
                    {"created", !existing.has_value()}});
}

HttpReply ObserveApi::record(const std::string& runId, std::string_view what, const json& body,
                             TimePoint now) {
  struct Operation {
    std::string_view name;
    const char* list;
    std::optional<BodyFault> (*check)(const json& body);
    bool (Store::*add)(const RunRow& run, const json& body, TimePoint now);
  };
  constexpr Operation kOperations[] = {
      {"steps", "steps", checkSteps, &Store::addSteps},
      {"llm-calls", "calls", checkLlmCalls, &Store::addLlmCalls},
      {"complete", nullptr, checkCompletion, &Store::addCompletion}};
  for (const Operation& operation : kOperations) {
    if (operation.name != what) continue;
    if (const auto fault = operation.check(body)) return refused(*fault);
    const auto run = store_.findRun(runId);
    if (!run) return errorReply(404, "the run is unknown");
    if (!(store_.*operation.add)(*run, body, now)) return storeFailed();
    json answer = {{"run_id", runId}};
    if (operation.list == nullptr) {
      answer["status"] = body.at("status");
    } else {
      answer["recorded"] = body.at(operation.list).size();
    }
    return jsonReply(answer);
  }
  return noSuchEndpoint();
}

HttpReply ObserveApi::heartbeat(const std::string& agentSlug, const json& body, TimePoint now) {
  if (const auto fault = checkHeartbeat(body)) return refused(*fault);
  if (!store_.addHeartbeat(agentSlug, body, now)) return storeFailed();
  return jsonReply({{"agent_slug", agentSlug}, {"received_at", iso8601Milliseconds(now)}});
}

}  // namespace pelmar::service
