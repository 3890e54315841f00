#include "observe/event_recording.h"

#include <cstdint>
#include <limits>
#include <optional>

#include "config/hardware_id.h"
#include "observe/run_state.h"
#include "platform/json.h"
#include "platform/text.h"

namespace pelmar {
namespace {

constexpr std::size_t kPreviewCharacters = 2000;

std::string preview(const std::string& text) {
  return std::string(firstCharacters(text, kPreviewCharacters));
}

json arrayOf(json element) {
  json array = json::array();
  array.push_back(std::move(element));
  return array;
}

std::optional<std::int64_t> integerAt(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? std::nullopt : exactInteger(*found);
}

// The position of the next step. It is used up before the step is sent: a step that is tried again
// gets the next one.
std::int64_t takeStepPosition(json& fileState) {
  const auto position = integerAt(fileState, runState::kStepPosition).value_or(0);
  const bool hasNext = position < std::numeric_limits<std::int64_t>::max();
  fileState[runState::kStepPosition] = hasNext ? position + 1 : position;
  return position;
}

// Takes the payload out of `event`. Where a payload has a key of the frame, the payload's stands.
json takeOutput(RunEvent& event) {
  json output = std::move(event.payload);
  output.emplace("kind", event.kind);
  output.emplace("timestamp", event.timestamp);
  output.emplace("source", "cowork-audit");
  output.emplace("session_id", event.sessionID);
  output.emplace("hardware_uuid", HardwareID::ioPlatformUUID());
  return output;
}

// The LLM call that `event` reports, or none.
std::optional<json> llmCallOf(const RunEvent& event, const json& fileState) {
  if (event.kind != "assistant") return std::nullopt;
  const auto usage = event.payload.find("usage");
  if (usage == event.payload.end() || !usage->is_object()) return std::nullopt;
  const auto tokensIn = integerAt(*usage, "input_tokens");
  const auto tokensOut = integerAt(*usage, "output_tokens");
  if (!tokensIn || !tokensOut || (*tokensIn <= 0 && *tokensOut <= 0)) return std::nullopt;
  const std::string* model = stringAt(event.payload, "model");
  return json{{"model", model == nullptr ? "claude-cowork-unknown" : *model},
              {"tokens_in", *tokensIn},
              {"tokens_out", *tokensOut},
              {"cost", 0.0},
              {"task", "cowork"},
              {"prompt_preview", textAt(fileState, runState::kLastUserMessage)},
              {"response_preview", preview(textAt(event.payload, "text"))}};
}

struct Completion {
  std::string status;
  json result;
};

bool isCompleted(const json& fileState) {
  const auto completed = fileState.find(runState::kRunCompleted);
  return completed != fileState.end() && *completed == true;
}

// How `event` completes its run, or none. A daily run holds many sessions and is left open.
std::optional<Completion> completionOf(const RunEvent& event, const json& fileState) {
  if (!event.kind.starts_with("result:") || isCompleted(fileState) ||
      !textAt(fileState, runState::kDailySessionDate).empty()) {
    return std::nullopt;
  }
  const std::string subtype = textAt(event.payload, "subtype");
  Completion completion{.status = subtype == "success" ? "success" : "error",
                        .result = {{"cowork_result_subtype", subtype}}};
  for (const char* key : {"duration", "num_turns", "total_cost_usd"}) {
    const auto found = event.payload.find(key);
    if (found != event.payload.end()) completion.result[key] = *found;
  }
  return completion;
}

}  // namespace

bool appendEventToRun(RunEvent event, const std::string& runID, json& fileState,
                      const ObserveClient& client) {
  if (event.kind == "user_message") {
    const std::string* text = stringAt(event.payload, "text");
    if (text != nullptr) fileState[runState::kLastUserMessage] = preview(*text);
  }
  const auto position = takeStepPosition(fileState);
  auto call = llmCallOf(event, fileState);
  auto completion = completionOf(event, fileState);

  json step;
  step["step_name"] = std::move(event.stepName);
  step["position"] = position;
  step["output"] = takeOutput(event);
  if (!client.recordSteps(runID, arrayOf(std::move(step)))) return false;

  if (call) client.recordLLMCalls(runID, arrayOf(std::move(*call)));
  if (completion) {
    client.completeRun(runID, completion->status, std::move(completion->result));
    fileState[runState::kRunCompleted] = true;
  }
  return true;
}

}  // namespace pelmar
