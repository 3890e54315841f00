#include "watcher/poll_pass.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "audit/line_processing.h"
#include "observe/run_state.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/log.h"
#include "platform/text.h"
#include "watcher/audit_files.h"
#include "watcher/line_splitting.h"

namespace pelmar {
namespace {

constexpr Logger logger("cowork-watcher");

CursorEntry newEntry(std::int64_t offset) {
  return CursorEntry({{CursorEntry::kOffset, offset},
                      {runState::kRunId, nullptr},
                      {runState::kWorkflowId, nullptr},
                      {runState::kStepPosition, 0}});
}

void saveCursor(const CursorFile& cursorFile, const CursorState& state, Journal& journal,
                const std::set<std::string>& stillNew = {}) {
  if (const auto failure = cursorFile.save(state)) {
    logger.error("cursor save failed: " + *failure);
  } else {
    journal.clear(stillNew);
  }
}

// A line of a transcript, decoded.
struct Line {
  std::int64_t length;           // bytes of its UTF-8 text and its line feed
  std::optional<json> object{};  // none when it is no JSON object
};

Line decode(std::string_view bytes) {
  const auto lengthOf = [](std::string_view text) {
    return static_cast<std::int64_t>(text.size()) + 1;
  };
  Line line{.length = lengthOf(bytes), .object = parseJsonObject(bytes)};
  if (line.object || isUtf8(bytes)) return line;  // what parses is UTF-8
  const std::string repaired = repairedUtf8(bytes);
  return {.length = lengthOf(repaired), .object = parseJsonObject(repaired)};
}

std::int64_t decodedLength(std::string_view bytes) {
  return static_cast<std::int64_t>(isUtf8(bytes) ? bytes.size() : repairedUtf8(bytes).size());
}

// One transcript's share of a pass.
struct Reading {
  const std::string& path;
  CursorState& state;
  Journal& journal;
  const ObserveClient& client;
  const std::string& agentSlug;
};

// Reports the complete lines of `bytes`, which begin at `start` in a transcript of `size` bytes,
// and returns the new offset. Never below `start`: where the bytes end inside a character, its
// replacement is counted longer than what was read of it.
std::int64_t reportLines(const Reading& reading, FileState& fileState, std::string_view bytes,
                         std::int64_t start, std::int64_t size) {
  std::int64_t running = start;
  const auto& values = fileState.values;
  const auto onRecorded = [&](const std::string& key) { reading.journal.addEvent(values, key); };
  const std::string_view partial = splitLinesKeepPartial(bytes, [&](std::string_view text) {
    if (trimmedBlanks(text).empty()) {
      running += static_cast<std::int64_t>(text.size()) + 1;
      return true;
    }
    Line line = decode(text);
    if (!line.object) {
      logger.error("skipping malformed line in " + reading.path);
    } else if (!processLine(std::move(*line.object), fileState, reading.client, reading.agentSlug,
                            reading.path, onRecorded)) {
      return false;
    }
    running += line.length;
    reading.journal.addLine(values, start + (text.data() + text.size() - bytes.data()) + 1);
    return true;
  });
  return std::max(start, std::min(size - decodedLength(partial), running));
}

// Whether `reading` read anything behind `start`.
bool readNewLines(const Reading& reading, std::int64_t start, std::int64_t size) {
  // A negative offset ends the process once the file is open; what lies behind it may overflow.
  const std::int64_t length = start < 0 ? 0 : size - start;
  const RangeRead read = readRange(reading.path, start, length);
  if (!read.isOpened) return false;
  if (!read.bytes) {
    logger.error("seek/read failed for " + reading.path);
    return false;
  }
  auto known = reading.state.find(reading.path);
  if (known == reading.state.end()) {
    known = reading.state.emplace(reading.path, newEntry(0)).first;
  }
  FileState& fileState = known->second.open();
  reading.journal.begin(reading.path, fileState.values);
  fileState.values[CursorEntry::kOffset] =
      reportLines(reading, fileState, *read.bytes, start, size);
  known->second.rewrite();
  return true;
}

// A transcript as a pass finds it.
struct Found {
  std::string path;
  std::optional<std::int64_t> size;  // none when it is gone again
  CursorEntry* known;                // null when the state does not know it
};

// Null when `state` does not know `path`.
CursorEntry* entryOf(CursorState& state, const std::string& path) {
  const auto known = state.find(path);
  return known == state.end() ? nullptr : &known->second;
}

std::vector<Found> findTranscripts(CursorState& state) {
  std::vector<Found> transcripts;
  visitAuditFiles([&](const Entry& entry) {
    transcripts.push_back({.path = entry.path,
                           .size = sizeOfAt(entry.folder, entry.name.data()),
                           .known = entryOf(state, entry.path)});
  });
  return transcripts;
}

}  // namespace

void resume(CursorState& state, Journal& journal) {
  const auto entries = journal.load();
  std::set<CursorEntry*> changed;
  for (const JournalEntry& entry : entries) {
    if (entry.isNew) {
      state.try_emplace(entry.transcript, newEntry(0));
      continue;
    }
    const auto known = state.find(entry.transcript);
    if (known == state.end()) continue;  // changes of what nobody kept
    changed.insert(&known->second);
    json& values = known->second.open().values;
    values.update(entry.values);
    if (entry.offset) values[CursorEntry::kOffset] = *entry.offset;
  }
  for (const JournalEntry& entry : entries) {
    const auto known = state.find(entry.transcript);
    if (!entry.seenKey || known == state.end()) continue;
    changed.insert(&known->second);
    auto& [values, seenKeys] = known->second.open();
    seenKeys.attach(values);  // from here on the list is only added to
    seenKeys.add(values, *entry.seenKey);
    seenKeys.trim(values);
  }
  for (CursorEntry* entry : changed) entry->rewrite();
}

void pollOnce(CursorState& state, const CursorFile& cursorFile, Journal& journal,
              const ObserveClient& client, const std::string& agentSlug, bool verbose) {
  const auto transcripts = findTranscripts(state);
  if (verbose) {
    logger.debug("found " + std::to_string(transcripts.size()) + " audit.jsonl files");
  }
  // Those that hold something and wait for their first turn: a start behind a kill would take them
  // for old ones.
  std::set<std::string> waiting;
  for (const auto& [path, size, known] : transcripts) {
    if (known == nullptr && size.value_or(0) > 0) waiting.insert(path);
  }
  journal.addNew(waiting);
  bool isJustFound = true;
  for (const auto& [path, foundSize, known] : transcripts) {
    const auto size = isJustFound ? foundSize : sizeOf(path);
    if (!size) continue;
    // What is made anew during the walk may be found twice.
    const CursorEntry* entry = known != nullptr ? known : entryOf(state, path);
    const auto start = entry == nullptr ? 0 : entry->offset();
    if (start >= *size) continue;
    if (entry == nullptr) journal.addNew({path});  // it may have been empty until now
    const Reading reading{
        .path = path, .state = state, .journal = journal, .client = client, .agentSlug = agentSlug};
    if (!readNewLines(reading, start, *size)) continue;
    isJustFound = false;
    waiting.erase(path);
    saveCursor(cursorFile, state, journal, waiting);
  }
  for (auto& [path, entry] : state) entry.endPass();
}

void seedCursorToEOF(CursorState& state, const CursorFile& cursorFile, Journal& journal) {
  std::size_t seeded = 0;
  for (const auto& path : auditFiles()) {
    if (state.contains(path)) continue;
    const auto size = sizeOf(path);
    if (!size) continue;
    state.emplace(path, newEntry(*size));
    ++seeded;
  }
  if (seeded == 0) return;
  logger.message("seeded cursor to EOF for " + std::to_string(seeded) + " audit files (tail-only)");
  saveCursor(cursorFile, state, journal);
}

}  // namespace pelmar
