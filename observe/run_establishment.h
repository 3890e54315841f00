#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "observe/observe_client.h"
#include "observe/run_event.h"

namespace pelmar {

// Obtains a run for the session of `event` and writes its ids into the per-file state: the agent's
// daily run when there is an agent slug, otherwise, or when that cannot be had, a run of the
// session alone. Leaves the state as it is when the service gives none. Asks whatever the state
// holds: whether a run is needed is the caller's to know. Blocks for up to two requests.
void ensureRunStarted(const RunEvent& event, nlohmann::json& fileState, const ObserveClient& client,
                      const std::string& agentSlug);

}  // namespace pelmar
