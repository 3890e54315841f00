#include "observe/observe_client.h"

#include "config/hardware_id.h"
#include "platform/host_name.h"
#include "platform/json.h"
#include "platform/url.h"

namespace pelmar {
namespace {

constexpr double kHeartbeatDeadline = 15;  // seconds

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

}  // namespace

std::string runPath(const std::string& runID, const char* operation) {
  return "/api/v1/observe/runs/" + runID + operation;
}

std::optional<StartRunResult> ObserveClient::startRun(const std::string& agentName,
                                                      const std::string& workflowName, json inputs,
                                                      json metadata, const std::string& sessionID,
                                                      const std::string& agentSlug) const {
  json body;
  body["agent_name"] = agentName;
  body["workflow_name"] = workflowName;
  body["inputs"] = std::move(inputs);
  body["metadata"] = std::move(metadata);
  if (!sessionID.empty()) body["session_id"] = sessionID;
  if (!agentSlug.empty()) body["agent_slug"] = agentSlug;
  const auto answer = post("/api/v1/observe/runs/start/", body, "");
  if (!answer) return std::nullopt;
  return StartRunResult{.runID = textAt(*answer, "run_id"),
                        .workflowID = textAt(*answer, "workflow_id"),
                        .startedAt = textAt(*answer, "started_at")};
}

std::optional<DailyRunResult> ObserveClient::startDailyRun(const std::string& agentSlug,
                                                           const std::string& agentType) const {
  const auto answer = post("/api/v1/observe/runs/daily/",
                           {{"agent_slug", agentSlug}, {"agent_type", agentType}}, "");
  if (!answer) return std::nullopt;
  const auto created = answer->find("created");
  return DailyRunResult{.runID = textAt(*answer, "run_id"),
                        .workflowID = textAt(*answer, "workflow_id"),
                        .startedAt = textAt(*answer, "started_at"),
                        .date = textAt(*answer, "date"),
                        .created = created != answer->end() && *created == true};
}

bool ObserveClient::recordSteps(const std::string& runID, json steps) const {
  return recordAll(runID, "/steps/", "steps", "step", std::move(steps));
}

bool ObserveClient::recordLLMCalls(const std::string& runID, json calls) const {
  return recordAll(runID, "/llm-calls/", "calls", "call", std::move(calls));
}

bool ObserveClient::recordAll(const std::string& runID, const char* operation, const char* key,
                              const char* noun, json records) const {
  if (records.empty()) return true;
  const std::string summary = counted(records.size(), noun);
  json body;
  body[key] = std::move(records);
  body["hardware_uuid"] = HardwareID::ioPlatformUUID();
  return post(runPath(runID, operation), body, summary).has_value();
}

bool ObserveClient::completeRun(const std::string& runID, const std::string& status,
                                json result) const {
  json body;
  body["status"] = status;
  body["result"] = std::move(result);
  body["error"] = "";
  body["steps"] = json::array();
  return post(runPath(runID, "/complete/"), body, "").has_value();
}

std::optional<HttpExchange> ObserveClient::heartbeatExchange(const std::string& agentSlug) const {
  const std::string url =
      endpointUrl(apiUrl, "/api/v1/observe/agents/" + agentSlug + "/heartbeat/");
  if (!isUrl(url)) return std::nullopt;
  const json body = {{"source", "watcher"}, {"machine_id", hostName()}};
  return doPostOnce(url, compactJson(body), kHeartbeatDeadline);
}

bool ObserveClient::heartbeat(const std::string& agentSlug) const {
  const auto exchange = heartbeatExchange(agentSlug);
  return exchange && !exchange->isTimeout() && exchange->status < 400;
}

}  // namespace pelmar
