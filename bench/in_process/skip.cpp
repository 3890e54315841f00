#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <utility>

#include "audit/audit_parser.h"
#include "audit/event_names.h"
#include "audit/line_processing.h"
#include "bench/in_process/in_process.h"
#include "bench/in_process/transcript_lines.h"
#include "platform/json.h"

namespace pelmar {
namespace {

constexpr std::size_t kFullList = 10000;

std::vector<std::string> keysOf(std::string_view line) {
  std::vector<std::string> keys;
  auto object = parseJsonObject(line);
  if (!object) return keys;
  const auto shared = std::make_shared<const json>(std::move(*object));
  for (const auto& event : AuditParser::parse(shared, std::chrono::system_clock::now())) {
    keys.push_back(eventDedupKey(*shared, event));
  }
  return keys;
}

// Lines with events, and a full list that holds the keys of all of them.
struct SeenLines {
  explicit SeenLines(const std::string& folder) : source(folder) {
    std::unordered_set<std::string> known;
    for (const auto line : source.all()) {
      const auto keys = keysOf(line);
      if (keys.empty()) continue;
      if (known.size() + keys.size() > kFullList) break;
      lines.push_back(line);
      known.insert(keys.begin(), keys.end());
    }
    for (std::size_t i = 0; known.size() < kFullList; ++i) {
      known.insert("00000000-0000-4000-8000-" + std::to_string(100000000000 + i) + ":assistant:");
    }
    for (const auto& key : known) fileState.values["seen_keys"].push_back(key);
  }

  TranscriptLines source;
  std::vector<std::string_view> lines{};
  FileState fileState{.values = json::object()};
};

void skipAll(benchmark::State& state, SeenLines& seen) {
  const ObserveClient nobody("", "");
  bool isRecorded = false;
  std::int64_t handled = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto line : seen.lines) {
      auto object = parseJsonObject(line);
      const bool isHandled = processLine(std::move(*object), seen.fileState, nobody, "", "",
                                         [&isRecorded](const std::string&) { isRecorded = true; });
      handled += isHandled ? 1 : 0;
    }
  }
  if (isRecorded || handled == 0) state.SkipWithError("a line was not skipped");
  state.SetItemsProcessed(handled);
}

// The floor: the same lines down to the keys of their events, which nobody looks up.
void makeKeys(benchmark::State& state, const SeenLines& seen) {
  std::int64_t handled = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto line : seen.lines) benchmark::DoNotOptimize(keysOf(line));
    handled += static_cast<std::int64_t>(seen.lines.size());
  }
  state.SetItemsProcessed(handled);
}

}  // namespace

void registerSkip(const std::string& folder) {
  const auto seen = std::make_shared<SeenLines>(folder);
  benchmark::RegisterBenchmark("skip/agent",
                               [seen](benchmark::State& state) { skipAll(state, *seen); });
  benchmark::RegisterBenchmark("skip/floor",
                               [seen](benchmark::State& state) { makeKeys(state, *seen); });
}

}  // namespace pelmar
