#pragma once

// Understands one line of a transcript. Pure: never fails, never logs; a line that it does not know
// becomes one event of kind "unknown". The line format and the kinds: docs/events.md.

#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "audit/cowork_event.h"
#include "platform/dates.h"

namespace pelmar::AuditParser {

// The events of `line` (a JSON object), in the order in which they are to be recorded. `now` stands
// in where the line has no timestamp. Ends the process when a token count lies beyond the signed
// 64-bit range.
std::vector<CoworkEvent> parse(const std::shared_ptr<const nlohmann::json>& line, TimePoint now);

}  // namespace pelmar::AuditParser
