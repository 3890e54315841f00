// The text of a journal beside the text of a cursor file: whatever both say, an agent that starts
// there makes its pass, and what it saves holds without the journal.

#include <string>
#include <string_view>

#include "journal/journal.h"
#include "platform/files.h"
#include "platform/json.h"
#include "tests/fuzz/agent_home.h"
#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

constexpr std::string_view kLine =
    R"({"type":"user","uuid":"1","timestamp":"T","message":{"content":"q"}})"
    "\n";

// "/t" stands for the transcript, whose path no input can know.
std::string withPath(std::string_view input) {
  std::string text(input);
  constexpr std::string_view kStandIn = "\"/t\"";
  const std::string path = compactJson(agentHome().transcript());
  for (auto at = text.find(kStandIn); at != text.npos; at = text.find(kStandIn, at + path.size())) {
    text.replace(at, kStandIn.size(), path);
  }
  return text;
}

// A journal of these records as it would be written: fuzzing finds no checksum by chance.
std::string withChecksums(std::string_view records) {
  std::uint64_t sum = 0xcbf29ce484222325;
  std::string text;
  const auto add = [&](std::string_view record) {
    for (const char c : record) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%llx", static_cast<unsigned long long>(sum));
    text.append(digits).append(" ").append(record).append("\n");
  };
  const auto takeRecord = [&records] {
    const auto end = records.find('\n');
    const auto record = records.substr(0, end);
    records.remove_prefix(end == records.npos ? records.size() : end + 1);
    return record;
  };
  if (records.starts_with("{\"new\"")) add(takeRecord());  // stands before the header
  add(compactJson({{"continues", fileIdentity(agentHome().cursor())}}));
  while (!records.empty()) add(takeRecord());
  return text;
}

void check(std::string_view input) {
  AgentHome& home = agentHome();
  home.writeTranscript(kLine);
  const auto parts = partsOf(input);
  test::writeFile(home.cursor(), withPath(parts[0]));
  const std::string path = journalPath(home.cursor());
  test::writeFile(path,
                  parts.size() > 1 ? withChecksums(withPath(parts[1])) : std::string(parts[0]));
  const ScriptedService service(
      [](const HttpRequest&) { return answered(200, R"({"run_id":"R","workflow_id":"W"})"); });

  const CursorFile file(home.cursor());
  auto [state, problem] = file.load();
  const auto own = state.find(home.transcript());
  const bool isNegative =
      own != state.end() &&
      exactInteger(own->second.values().value("offset", json(0))).value_or(0) < 0;
  Journal journal(home.cursor());
  if (problem.empty()) resume(state, journal);
  try {
    pollOnce(state, file, journal, home.client(), "", /*verbose=*/false);
  } catch (const NegativeOffset&) {
    require(isNegative, "no journal ends the agent");
    return;
  }
  require(!file.save(state), "what was resumed can be saved");
  require(Journal(home.cursor()).load().empty(), "a journal is of no use to the next cursor file");
  for (const auto& [transcript, entry] : file.load().state) {
    require(entry.values() == state.at(transcript).values(), "what was saved is what was resumed");
  }
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(pelmar::fuzz::textOf(data, size));
  return 0;
}
