#pragma once

// What was recorded since the cursor file was last saved. That file is written once a transcript a
// pass; an agent that is killed in the middle of a long one would send all of it again. Beside it
// this keeps a line an event, let go with each save. An aid and no more: when it is lost, damaged,
// unwritable or of another cursor file, the cursor file alone holds. Not flushed: it outlives the
// process, not a power cut.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/append_file.h"

namespace pelmar {

// What one entry says of a transcript.
struct JournalEntry {
  std::string transcript;
  bool isNew = false;  // it was found, and nothing of it was read yet; says nothing else
  nlohmann::json values = nlohmann::json::object();  // keys of its per-file state, new values
  std::optional<std::int64_t> offset{};              // behind its last handled line
  std::optional<std::string> seenKey{};              // of the event that was recorded
};

// Beside the cursor file at `cursorPath`.
std::string journalPath(const std::string& cursorPath);

class Journal {
 public:
  // Touches no file.
  explicit Journal(std::string cursorPath) : cursorPath_(std::move(cursorPath)) {}

  // What continues the cursor file that stands there, oldest first, up to the first damaged entry;
  // what is added next goes behind it. Blocks on one read of the whole journal.
  std::vector<JournalEntry> load();

  // Adds those of `transcripts` that this journal does not know. They are in no cursor file yet.
  void addNew(const std::set<std::string>& transcripts);

  // What is added from now on is about `transcript`, whose per-file state is `values`; of these
  // only keys whose value is no array or object are looked at.
  void begin(const std::string& transcript, const nlohmann::json& values);

  // Adds the event `seenKey` that was just recorded, and what of `values` changed with it. One
  // write.
  void addEvent(const nlohmann::json& values, const std::string& seenKey);

  // Everything before `offset` was handled. Kept for the next entry, which is added now only when
  // `values` changed.
  void addLine(const nlohmann::json& values, std::int64_t offset);

  // The cursor file has been saved: what it holds is not needed here any more. Of what was added
  // as new, `stillNew` is not in it. These are not written again if they can stand where they are.
  void clear(const std::set<std::string>& stillNew = {});

 private:
  nlohmann::json takeChanges(const nlohmann::json& values);
  void addEntry(nlohmann::json entry);
  void append(const nlohmann::json& record);
  void addHeader(std::string& text);
  void write(const std::string& text);

  std::string cursorPath_;
  std::set<std::string> new_{};
  std::string transcript_{};
  nlohmann::json written_{};              // of transcript_: what is known of its values
  std::optional<std::int64_t> offset_{};  // of transcript_: not written yet
  std::optional<AppendFile> file_{};      // open from the first entry to the next clear()
  std::uint64_t checksum_ = 0;            // over all records so far
  std::size_t length_ = 0;                // of what is good in the file
  std::size_t headLength_ = 0;            // of all of new_ before the header; 0: not there
  std::uint64_t headChecksum_ = 0;        // over it
  bool isStale_ = false;                  // the file continues another cursor file
};

}  // namespace pelmar
