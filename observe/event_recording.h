#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "observe/observe_client.h"
#include "observe/run_event.h"

namespace pelmar {

// Records `event` as a step of the run `runID`; an assistant event with token usage also as an LLM
// call; a result event also completes the run, once, unless it is a daily run. Keeps its
// bookkeeping in the per-file state. False when the step was not recorded: the event is then tried
// again, with the next position. A lost LLM call or completion is not. Blocks for up to three
// requests.
bool appendEventToRun(RunEvent event, const std::string& runID, nlohmann::json& fileState,
                      const ObserveClient& client);

}  // namespace pelmar
