#include "observe/run_establishment.h"

#include "observe/run_state.h"
#include "platform/json.h"
#include "platform/log.h"

namespace pelmar {
namespace {

constexpr const char* kAgentName = "claude-cowork";

constexpr Logger logger("cowork-watcher");

// Whether the agent's run of the day was obtained.
bool attachToDailyRun(const RunEvent& event, json& fileState, const ObserveClient& client,
                      const std::string& agentSlug) {
  const auto run = client.startDailyRun(agentSlug, kAgentName);
  if (!run) return false;
  fileState[runState::kRunId] = run->runID;
  fileState[runState::kWorkflowId] = run->workflowID;
  fileState[runState::kDailySessionDate] = run->date;
  logger.message("attached cowork session=" + event.sessionID + " to daily run " + run->runID +
                 " (" + (run->created ? "created" : "existing") + ")");
  return true;
}

// Whether a run of the session alone was obtained.
bool startSessionRun(const RunEvent& event, json metadata, json& fileState,
                     const ObserveClient& client, const std::string& agentSlug) {
  const auto& sid = event.sessionID;
  metadata["source"] = "cowork-audit";
  metadata["cowork_session_id"] = sid;
  const auto run = client.startRun(kAgentName, "cowork:" + (sid.empty() ? "unknown" : sid),
                                   {{"source", "claude_cowork"}, {"session_id", sid}},
                                   std::move(metadata), sid, agentSlug);
  if (!run) return false;
  fileState[runState::kRunId] = run->runID;
  fileState[runState::kWorkflowId] = run->workflowID;
  return true;
}

}  // namespace

void ensureRunStarted(const RunEvent& event, json& fileState, const ObserveClient& client,
                      const std::string& agentSlug) {
  if (!agentSlug.empty()) {
    if (attachToDailyRun(event, fileState, client, agentSlug)) return;
    startSessionRun(event, json::object(), fileState, client, agentSlug);
    return;
  }
  json metadata = json::object();
  if (event.kind == "session_init") metadata["model"] = textAt(event.payload, "model");
  if (startSessionRun(event, std::move(metadata), fileState, client, agentSlug)) {
    logger.message("started per-session run " + textAt(fileState, runState::kRunId) +
                   " for session " + event.sessionID);
  }
}

}  // namespace pelmar
