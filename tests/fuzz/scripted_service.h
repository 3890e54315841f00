#pragma once

// The service as the fuzzers of what lies above HTTP see it: a function instead of a network, so
// that thousands of passes fit into a second. It takes the place of platform/http.cpp in the
// programs that link it.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/http.h"

namespace pelmar::fuzz {

struct SentRequest {
  std::string url{};
  std::vector<std::pair<std::string, std::string>> headers{};
  std::string body{};
};

struct ScriptedService {
  std::function<HttpExchange(const HttpRequest&)> answer{};
  std::vector<SentRequest> requests{};  // all that came since it was emptied last
};

ScriptedService& scriptedService();

// An answer whose transfer worked.
HttpExchange answered(int status, std::string body);

}  // namespace pelmar::fuzz
