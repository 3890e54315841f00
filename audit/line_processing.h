#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "audit/seen_keys.h"
#include "observe/observe_client.h"

namespace pelmar {

// What is remembered of one transcript. `values` is an open JSON object whose unknown keys are
// kept; its keys are named by the rooms that own them.
struct FileState {
  nlohmann::json values;
  SeenKeys seenKeys{};
};

// Reports the events of one line that were not recorded before, into today's run. True when every
// event was recorded or seen already; false when the line must be tried again later, and what was
// recorded of it by then is remembered. `path` names the transcript in the log. `onRecorded` is
// told the key of each event once the service has it and `fileState` says so. Blocks for the
// requests that it makes.
bool processLine(nlohmann::json fileObj, FileState& fileState, const ObserveClient& client,
                 const std::string& agentSlug, const std::string& path,
                 const std::function<void(const std::string& key)>& onRecorded = {});

// Today's date in UTC as the per-file state and the service write it, yyyy-MM-dd.
std::string todayDateUTC();

}  // namespace pelmar
