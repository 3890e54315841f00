// What the service answers: statuses and bodies, one behind the other, to the requests of three
// passes. An input holds an answer between each two lines "----": a number, a space and the body;
// the number is the status, or 0 for a transfer that failed. Behind the last one no answer comes in
// time. The agent has a slug when the size of the input is odd.

#include <charconv>
#include <string>
#include <vector>

#include "platform/json.h"
#include "tests/fuzz/agent_home.h"
#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

constexpr const char* kLines =
    R"({"type":"system","subtype":"init","uuid":"1","timestamp":"T"})"
    "\n"
    R"({"type":"user","uuid":"2","timestamp":"T","message":{"content":"q"}})"
    "\n"
    R"({"type":"assistant","uuid":"3","timestamp":"T","message":{"content":[{"type":"tool_use","id":"t"}],"usage":{"output_tokens":1}}})"
    "\n"
    R"({"type":"result","subtype":"success","uuid":"4","timestamp":"T"})"
    "\n";

HttpExchange answerIn(std::string_view part) {
  int status = 0;
  const auto* end = part.data() + part.size();
  const auto* behind = std::from_chars(part.data(), end, status).ptr;
  if (status < 100 || status > 999) return {.error = "no transfer"};
  part.remove_prefix(static_cast<std::size_t>(behind - part.data()));
  return answered(status, std::string(part));
}

void checkState(const CursorState& state) {
  const std::string_view lines = kLines;
  const auto offset = agentHome().offsetIn(state);
  require(offset >= 0 && offset <= static_cast<std::int64_t>(lines.size()),
          "the offset stays in the transcript");
  require(offset == 0 || lines[static_cast<std::size_t>(offset - 1)] == '\n',
          "the offset stands at the begin of a line");
  const json values = state.at(agentHome().transcript()).values();
  for (const char* key : {"run_id", "workflow_id"}) {
    require(values.at(key).is_null() || values.at(key).is_string(), "ids are strings or null");
  }
  const auto loaded = CursorFile(agentHome().cursor()).load().state;
  require(loaded.at(agentHome().transcript()).values() == values, "the state was saved");
}

// That what was answered with success was reported once, and nothing behind the offset.
void checkRequests(const std::vector<SentRequest>& requests, const std::vector<bool>& successes) {
  std::int64_t position = 0;
  for (std::size_t i = 0; i < requests.size(); ++i) {
    const auto& [url, headers, text] = requests[i];
    const auto body = parseJsonObject(text);
    require(body.has_value(), "a body is a JSON object");
    if (!url.ends_with("/steps/")) continue;
    require(url != std::string(kServiceUrl) + "/api/v1/observe/runs//steps/",
            "no step goes to a run without a name");
    const auto sent = body->at("steps").at(0).at("position").get<std::int64_t>();
    const bool isSentAgain = i > 0 && !successes[i - 1] && requests[i - 1].body == text;
    require(isSentAgain || sent >= position, "a position is used for one step");
    position = sent + 1;
  }
}

void checkAgent(const std::vector<std::string_view>& parts, const std::string& agentSlug) {
  std::size_t next = 0;
  std::vector<bool> successes;
  const ScriptedService service([&](const HttpRequest&) {
    HttpExchange exchange = next < parts.size() ? answerIn(parts[next++]) : HttpExchange();
    successes.push_back(!exchange.error && exchange.status / 100 == 2);
    return exchange;
  });
  agentHome().writeTranscript(kLines);
  CursorState state;
  for (int i = 0; i < 3; ++i) {
    agentHome().pass(state, agentSlug);
    checkState(state);
  }
  checkRequests(service.requests(), successes);
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = pelmar::fuzz::partsOf(pelmar::fuzz::textOf(data, size));
  pelmar::fuzz::checkAgent(parts, size % 2 == 0 ? "" : "slug");
  return 0;
}
