// Stands in for platform/http.cpp in bench_fixed_input: every request is answered at once with a
// run of the present day, so that only instructions of the agent's own are counted, and the same
// ones on every run.

#include "platform/dates.h"
#include "platform/http.h"

namespace pelmar {

struct HttpClient::State {
  std::string answer;
};

HttpClient::HttpClient()
    : state_(std::make_unique<State>(
          State{R"({"run_id":"run-1","workflow_id":"workflow-1","created":true,"date":")" +
                utcDate(std::chrono::system_clock::now()) + "\"}"})) {}

HttpClient::~HttpClient() = default;

HttpExchange HttpClient::send(const HttpRequest& /*request*/) {
  return {.body = state_->answer, .status = 200};
}

}  // namespace pelmar
