#include "tests/fuzz/scripted_service.h"

namespace pelmar {

struct HttpClient::State {};

HttpClient::HttpClient() = default;
HttpClient::~HttpClient() = default;

HttpExchange HttpClient::send(const HttpRequest& request) {
  auto& service = fuzz::scriptedService();
  service.requests.push_back({.url = request.url,
                              .headers = request.headers,
                              .body = std::string(request.body.value_or(""))});
  return service.answer(request);
}

}  // namespace pelmar

namespace pelmar::fuzz {

ScriptedService& scriptedService() {
  static ScriptedService service;
  return service;
}

HttpExchange answered(int status, std::string body) {
  return {.body = std::move(body), .status = status};
}

}  // namespace pelmar::fuzz
