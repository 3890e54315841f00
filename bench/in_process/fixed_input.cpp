// One piece of the agent's work on a fixed home (below PELMAR_ROOT), for counting its instructions:
//
//   bench_fixed_input catch-up | skip | idle | save
//
// What is counted is the function `measured` alone; callgrind is told its name. Fails when the work
// was another than the one that its name says.

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "watcher/poll_pass.h"

namespace {

using pelmar::CursorEntry;
using pelmar::CursorFile;
using pelmar::CursorState;
using pelmar::Journal;
using pelmar::ObserveClient;

constexpr const char* kAgentSlug = "bench-agent";
constexpr int kIdlePasses = 10;

std::size_t seenKeys(const CursorState& state) {
  std::size_t count = 0;
  for (const auto& [path, file] : state)
    count += file.values().value("seen_keys", nlohmann::json()).size();
  return count;
}

struct Agent {
  CursorFile cursorFile{pelmar::cursorPath()};
  Journal journal{pelmar::cursorPath()};
  ObserveClient client{"http://127.0.0.1:9", "bench-key"};
  CursorState state{};

  void pass() { pollOnce(state, cursorFile, journal, client, kAgentSlug, false); }
};

}  // namespace

extern "C" [[gnu::noinline]] void measured(const std::function<void()>& work) { work(); }

int main(int argc, char** argv) {
  const std::string_view what = argc == 2 ? argv[1] : "";
  Agent agent;
  if (what == "catch-up") {
    measured([&agent] { agent.pass(); });
    return seenKeys(agent.state) > 0 ? 0 : 1;
  }
  agent.pass();
  const std::size_t known = seenKeys(agent.state);
  if (what == "idle") {
    measured([&agent] {
      for (int i = 0; i < kIdlePasses; ++i) agent.pass();
    });
  } else if (what == "skip") {
    for (auto& [path, entry] : agent.state) {
      entry.open().values[CursorEntry::kOffset] = 0;
      entry.rewrite();
    }
    measured([&agent] { agent.pass(); });
  } else if (what == "save") {
    measured([&agent] { static_cast<void>(agent.cursorFile.save(agent.state)); });
  } else {
    std::fputs("usage: bench_fixed_input catch-up | skip | idle | save\n", stderr);
    return 2;
  }
  return known > 0 && seenKeys(agent.state) == known ? 0 : 1;
}
