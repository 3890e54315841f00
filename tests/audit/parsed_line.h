#pragma once

// A transcript line given as JSON text, parsed, and its events as JSON text to compare with: text,
// because 50 and 50.0 are the same JSON value and another number to whoever receives it.

#include <string>
#include <vector>

#include "audit/cowork_event.h"
#include "platform/dates.h"

namespace pelmar::test {

// The time of reading of every parsed line: 2026-03-04T05:06:07.089Z.
TimePoint timeOfReading();

std::vector<CoworkEvent> eventsOf(const std::string& line);

// Of the only event of `line`.
std::string sessionIdOf(const std::string& line);
std::string timestampOf(const std::string& line);

// The events of `line` in order, each as {"<kind>": <payload>}, in one compact array.
std::string kindsAndPayloads(const std::string& line);

// `text` as kindsAndPayloads writes it.
std::string compact(const std::string& text);

}  // namespace pelmar::test
