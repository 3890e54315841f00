#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "audit/audit_parser.h"
#include "bench/in_process/in_process.h"
#include "bench/in_process/transcript_lines.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/text.h"
#include "watcher/line_splitting.h"

namespace pelmar {
namespace {

// The way of a line up to its events, as a pass takes it.
std::size_t eventsOf(std::string_view line) {
  if (trimmedBlanks(line).empty()) return 0;
  auto object = parseJsonObject(line);
  if (!object) return 0;
  const auto shared = std::make_shared<const json>(std::move(*object));
  return AuditParser::parse(shared, std::chrono::system_clock::now()).size();
}

void readAll(benchmark::State& state, const std::vector<std::string>& paths) {
  std::int64_t bytes = 0;
  std::size_t events = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto& path : paths) {
      const RangeRead read = readRange(path, 0, sizeOf(path).value_or(0));
      if (!read.bytes) continue;
      bytes += static_cast<std::int64_t>(read.bytes->size());
      splitLinesKeepPartial(*read.bytes, [&events](std::string_view line) {
        events += eventsOf(line);
        return true;
      });
    }
  }
  if (events == 0) state.SkipWithError("the transcripts hold no events");
  state.SetBytesProcessed(bytes);
}

// The floor: each line becomes a JSON value by the library that the agent uses. Less is not
// possible without another library: events are made of those values.
void parseAll(benchmark::State& state, const TranscriptLines& lines) {
  std::int64_t bytes = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto line : lines.all()) {
      benchmark::DoNotOptimize(json::parse(line.begin(), line.end(), nullptr, false));
      bytes += static_cast<std::int64_t>(line.size()) + 1;
    }
  }
  state.SetBytesProcessed(bytes);
}

}  // namespace

void registerReading(const std::string& folder) {
  const auto lines = std::make_shared<const TranscriptLines>(folder);
  benchmark::RegisterBenchmark(
      "reading/agent",
      [paths = transcriptsBelow(folder)](benchmark::State& state) { readAll(state, paths); });
  benchmark::RegisterBenchmark("reading/floor",
                               [lines](benchmark::State& state) { parseAll(state, *lines); });
}

}  // namespace pelmar
