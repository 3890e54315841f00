#include "tests/fuzz/scripted_service.h"

#include "tests/fuzz/fuzzing.h"

namespace pelmar {

namespace fuzz {
namespace {

ScriptedService* current = nullptr;

}  // namespace
}  // namespace fuzz

struct HttpClient::State {};

HttpClient::HttpClient() = default;
HttpClient::~HttpClient() = default;

HttpExchange HttpClient::send(const HttpRequest& request) {
  fuzz::require(fuzz::current != nullptr, "nothing is sent without a service");
  return fuzz::current->take(request);
}

}  // namespace pelmar

namespace pelmar::fuzz {

ScriptedService::ScriptedService(Answer answer) : answer_(std::move(answer)) { current = this; }

ScriptedService::~ScriptedService() { current = nullptr; }

HttpExchange ScriptedService::take(const HttpRequest& request) {
  requests_.push_back({.url = request.url,
                       .headers = request.headers,
                       .body = std::string(request.body.value_or(""))});
  return answer_(request);
}

HttpExchange answered(int status, std::string body) {
  return {.body = std::move(body), .status = status};
}

}  // namespace pelmar::fuzz
