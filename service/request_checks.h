#pragma once

// The checks of what an agent posts: each body has exactly the keys and types agreed on.
// A complaint names keys of that agreement only, never a value and never a key that the
// sender made up, so that no transcript text comes back in an error.

#include <optional>
#include <string>

#include "platform/json.h"

namespace pelmar::service {

struct BodyFault {
  std::string error;
  std::string key;  // a path such as "steps[0].position"; empty for the body as a whole
};

// None when the body is right.
std::optional<BodyFault> checkRunStart(const json& body);
std::optional<BodyFault> checkDailyRun(const json& body);
std::optional<BodyFault> checkSteps(const json& body);
std::optional<BodyFault> checkLlmCalls(const json& body);
std::optional<BodyFault> checkCompletion(const json& body);
std::optional<BodyFault> checkHeartbeat(const json& body);

}  // namespace pelmar::service
