#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace pelmar {

// One typed event of a transcript line.
struct CoworkEvent {
  std::string kind;
  std::string sessionID;                      // may be empty
  std::string timestamp;                      // as the line has it, or the time of reading
  nlohmann::json payload;                     // object; its keys depend on the kind
  std::shared_ptr<const nlohmann::json> raw;  // the whole line, shared by all of its events
};

}  // namespace pelmar
