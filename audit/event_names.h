#pragma once

// The two names of an event: the stable one that keeps it from being recorded twice, and the one
// that a reader of the run sees.

#include <nlohmann/json.hpp>
#include <string>

#include "audit/cowork_event.h"

namespace pelmar {

// "<identity>:<kind>:<tool use id>", where the identity is the line's uuid, its id, the message id
// or the tool use id, whichever comes first; never empty. Events of one kind without any identity
// share a key on purpose, and only the first of them is recorded.
std::string eventDedupKey(const nlohmann::json& lineObj, const CoworkEvent& event);

// Such as "cowork:assistant" or "cowork:tool_use:Read".
std::string stepNameForEvent(const CoworkEvent& event);

}  // namespace pelmar
