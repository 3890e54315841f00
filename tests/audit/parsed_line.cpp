#include "tests/audit/parsed_line.h"

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>

#include "audit/audit_parser.h"

namespace pelmar::test {

using nlohmann::json;

TimePoint timeOfReading() {
  using namespace std::chrono;
  return sys_days(2026y / March / 4) + 5h + 6min + 7s + 89ms;
}

std::vector<CoworkEvent> eventsOf(const std::string& line) {
  return AuditParser::parse(std::make_shared<const json>(json::parse(line)), timeOfReading());
}

std::string sessionIdOf(const std::string& line) { return eventsOf(line).at(0).sessionID; }

std::string timestampOf(const std::string& line) { return eventsOf(line).at(0).timestamp; }

std::string kindsAndPayloads(const std::string& line) {
  json events = json::array();
  for (const CoworkEvent& event : eventsOf(line)) events.push_back({{event.kind, event.payload}});
  return events.dump();
}

std::string compact(const std::string& text) { return json::parse(text).dump(); }

}  // namespace pelmar::test
