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

// One at a time; all that is sent during its life goes to it.
class ScriptedService {
 public:
  using Answer = std::function<HttpExchange(const HttpRequest&)>;

  explicit ScriptedService(Answer answer);
  ~ScriptedService();
  ScriptedService(const ScriptedService&) = delete;
  ScriptedService& operator=(const ScriptedService&) = delete;

  HttpExchange take(const HttpRequest& request);

  const std::vector<SentRequest>& requests() const { return requests_; }

 private:
  Answer answer_;
  std::vector<SentRequest> requests_{};
};

// An answer whose transfer worked.
HttpExchange answered(int status, std::string body);

}  // namespace pelmar::fuzz
