#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "bench/in_process/in_process.h"
#include "platform/descriptor.h"
#include "platform/files.h"
#include "watcher/cursor_file.h"

namespace pelmar {
namespace {

constexpr std::size_t kKeys = 2500;

std::string nameOf(std::size_t number) {
  char text[64];
  std::snprintf(text, sizeof text, "%08zx-58d2-4c8e-9f51-0d6c8a2b7e11", number);
  return text;
}

CursorState stateOf(std::size_t transcripts) {
  CursorState state;
  for (std::size_t i = 0; i < transcripts; ++i) {
    nlohmann::json values = {{"offset", 1000000 + i},
                             {"run_id", nameOf(i)},
                             {"workflow_id", nameOf(i)},
                             {"step_position", kKeys},
                             {"daily_session_date", "2026-03-04"}};
    auto& keys = values["seen_keys"] = nlohmann::json::array();
    for (std::size_t k = 0; k < kKeys; ++k) {
      keys.push_back(nameOf(i * kKeys + k) + ":tool_use:toolu_" + std::to_string(100000000 + k));
    }
    state.emplace("/home/me/.claude/projects/garden-planner/" + nameOf(i) + ".jsonl",
                  CursorEntry(values));
  }
  return state;
}

void save(benchmark::State& state, CursorState& cursor, const CursorFile& file) {
  CursorEntry& grown = cursor.begin()->second;
  std::int64_t offset = 2000000;
  for ([[maybe_unused]] auto _ : state) {
    grown.open().values[CursorEntry::kOffset] = ++offset;
    grown.rewrite();
    grown.endPass();
    if (const auto failure = file.save(cursor)) state.SkipWithError(failure->c_str());
  }
}

// The floor: the bytes, already made, are written, flushed and put in place. Less is not possible
// where a crash must leave the old file or the new one whole.
void writeBytes(benchmark::State& state, const std::string& bytes, const std::string& path) {
  const std::string temporary = path + ".tmp";
  for ([[maybe_unused]] auto _ : state) {
    const Descriptor file(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!file.valid() || !writeAll(file, bytes) || ::fsync(file.get()) != 0 ||
        ::rename(temporary.c_str(), path.c_str()) != 0) {
      state.SkipWithError("cannot be written");
    }
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}

}  // namespace

void registerCursorSave(const std::string& folder, std::size_t transcripts) {
  const auto cursor = std::make_shared<CursorState>(stateOf(transcripts));
  const std::string saved = folder + "/cursor.json";
  const CursorFile file(saved);
  if (file.save(*cursor)) return;
  const auto agent = [cursor, file](benchmark::State& state) { save(state, *cursor, file); };
  const auto floor = [bytes = readFile(saved).value_or(""), path = folder + "/floor.json"](
                         benchmark::State& state) { writeBytes(state, bytes, path); };
  benchmark::RegisterBenchmark("cursor-save/agent", agent)->UseRealTime();
  benchmark::RegisterBenchmark("cursor-save/floor", floor)->UseRealTime();
}

}  // namespace pelmar
