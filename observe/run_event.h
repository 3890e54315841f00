#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace pelmar {

// One event of a transcript, as far as the run that receives it has to know it.
struct RunEvent {
  std::string stepName;
  std::string kind;       // such as "user_message" or "result:success"
  std::string sessionID;  // may be empty
  std::string timestamp;
  nlohmann::json payload;  // object
};

}  // namespace pelmar
