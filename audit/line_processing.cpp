#include "audit/line_processing.h"

#include <chrono>
#include <memory>
#include <utility>

#include "audit/audit_parser.h"
#include "audit/event_names.h"
#include "observe/event_recording.h"
#include "observe/run_establishment.h"
#include "observe/run_state.h"
#include "platform/dates.h"
#include "platform/json.h"
#include "platform/log.h"

namespace pelmar {
namespace {

constexpr Logger logger("cowork-watcher");

// A daily run of another day is left; the next event gets a run of today.
void leaveStaleDailyRun(json& state, const std::string& agentSlug) {
  const std::string* cached = stringAt(state, runState::kDailySessionDate);
  if (agentSlug.empty() || cached == nullptr) return;
  const std::string today = todayDateUTC();
  if (*cached == today) return;
  logger.message("daily run stale (cached=" + *cached + " today=" + today + ") — rolling over");
  for (const char* key : {runState::kRunId, runState::kWorkflowId, runState::kDailySessionDate}) {
    state[key] = nullptr;
  }
}

RunEvent runEventOf(CoworkEvent event) {
  std::string stepName = stepNameForEvent(event);
  return {.stepName = std::move(stepName),
          .kind = std::move(event.kind),
          .sessionID = std::move(event.sessionID),
          .timestamp = std::move(event.timestamp),
          .payload = std::move(event.payload)};
}

enum class Outcome { recorded, onlyStartedRun, failed };

Outcome report(RunEvent event, json& state, const ObserveClient& client,
               const std::string& agentSlug, const std::string& path) {
  leaveStaleDailyRun(state, agentSlug);
  if (textAt(state, runState::kRunId).empty()) {
    ensureRunStarted(event, state, client, agentSlug);
    if (event.kind == "session_init") return Outcome::onlyStartedRun;
  }
  const std::string runID = textAt(state, runState::kRunId);
  if (runID.empty()) {
    logger.error("could not establish run for " + path + " — will retry");
    return Outcome::failed;
  }
  const bool isRecorded = appendEventToRun(std::move(event), runID, state, client);
  return isRecorded ? Outcome::recorded : Outcome::failed;
}

}  // namespace

bool processLine(json fileObj, FileState& fileState, const ObserveClient& client,
                 const std::string& agentSlug, const std::string& path,
                 const std::function<void(const std::string& key)>& onRecorded) {
  const auto line = std::make_shared<const json>(std::move(fileObj));
  auto& [values, seenKeys] = fileState;
  seenKeys.attach(values);
  for (CoworkEvent& event : AuditParser::parse(line, std::chrono::system_clock::now())) {
    const std::string key = eventDedupKey(*line, event);
    if (seenKeys.contains(key)) continue;
    switch (report(runEventOf(std::move(event)), values, client, agentSlug, path)) {
      case Outcome::recorded:
        seenKeys.add(values, key);
        if (onRecorded) onRecorded(key);
        break;
      case Outcome::onlyStartedRun:
        break;
      case Outcome::failed:
        return false;
    }
  }
  seenKeys.trim(values);
  return true;
}

std::string todayDateUTC() { return utcDate(std::chrono::system_clock::now()); }

}  // namespace pelmar
