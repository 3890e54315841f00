// The text of a cursor file: what is loaded is saved and loaded again as it was, and every entry
// carries a pass over a transcript.

#include <string>
#include <utility>

#include "observe/observe_client.h"
#include "platform/json.h"
#include "platform/url.h"
#include "tests/fuzz/agent_home.h"
#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

constexpr const char* kLines =
    R"({"type":"user","uuid":"1","timestamp":"T","message":{"content":"q"}})"
    "\n"
    R"({"type":"assistant","uuid":"2","timestamp":"T","message":{"content":[],"usage":{"input_tokens":1}}})"
    "\n"
    R"({"type":"result","subtype":"success","uuid":"3","timestamp":"T"})"
    "\n";
constexpr std::size_t kMostEntries = 8;

json valuesOf(const CursorState& state) {
  json values = json::object();
  for (const auto& [path, file] : state) values[path] = file.values();
  return values;
}

CursorState reloaded(const CursorState& state) {
  const CursorFile file(agentHome().cursor());
  require(!file.save(state), "a state can be saved");
  auto [loaded, problem] = file.load();
  require(problem.empty(), "what was saved can be loaded");
  require(valuesOf(loaded) == valuesOf(state), "what was saved is what is loaded");
  return std::move(loaded);
}

// What a run's id makes no URL of can be reported to nobody, and waits.
bool isSentTo(const std::string& run) {
  return isUrl(endpointUrl(kServiceUrl, runPath(run, "/steps/")));
}

void checkPass(const json& values) {
  AgentHome& home = agentHome();
  home.writeTranscript(kLines);
  const std::int64_t offset = exactInteger(values.value("offset", json(0))).value_or(0);
  CursorState state;
  state.emplace(home.transcript(), CursorEntry(values));
  try {
    home.pass(state, "");
    require(offset >= 0, "a negative offset ends the process");
  } catch (const NegativeOffset&) {
    require(offset < 0, "only a negative offset ends the process");
    return;
  }
  const auto size = static_cast<std::int64_t>(std::string_view(kLines).size());
  if (offset >= size) {
    require(state.at(home.transcript()).values() == values, "without news an entry stays");
  } else {
    require(!isSentTo(textAt(values, "run_id")) || home.offsetIn(state) == size,
            "a pass reads to the end");
    const json& keys = state.at(home.transcript()).values().value("seen_keys", json::array());
    require(keys.is_array() && keys.size() <= 10000, "seen keys are a list with an end");
  }
  reloaded(state);
}

void check(std::string_view text) {
  const CursorFile file(agentHome().cursor());
  test::writeFile(agentHome().cursor(), std::string(text));
  const ScriptedService service(
      [](const HttpRequest&) { return answered(200, R"({"run_id":"R","workflow_id":"W"})"); });
  const CursorState state = reloaded(file.load().state);
  std::size_t count = 0;
  for (const auto& [path, entry] : state) {
    if (++count > kMostEntries) return;
    checkPass(entry.values());
  }
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(pelmar::fuzz::textOf(data, size));
  return 0;
}
