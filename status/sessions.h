#pragma once

// The sessions of this home: their records, their transcripts, and how far each was reported.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "status/activity.h"

namespace pelmar::status {

enum class RunKind { none, daily, ownRun };

// A transcript that is watched.
struct Session {
  std::string id;
  std::string title;  // the id when the record has none
  std::string path;
  std::int64_t size = 0;    // bytes
  std::int64_t offset = 0;  // bytes reported
  std::int64_t behind = 0;  // bytes to report, a line that is being written included
  bool isInCursor = false;  // else a start without --from-start passes over what is there
  std::string runId{};
  RunKind runKind = RunKind::none;
  std::optional<std::int64_t> lastStep{};  // its position
  std::optional<Refusals> heldUpBy{};
};

struct Unreadable {
  std::string path;
  std::string reason;
};

struct Sessions {
  std::size_t records = 0;
  std::size_t transcripts = 0;  // watched or not
  std::int64_t backlog = 0;     // bytes, of all sessions
  std::vector<Session> sessions{};
  std::vector<std::string> recordsWithoutTranscript{};  // their session ids
  std::vector<std::string> transcriptsWithoutRecord{};  // their paths
  std::vector<std::string> uselessRecords{};            // their paths: no JSON object, or no id
  std::vector<Unreadable> unreadable{};                 // folders, records and transcripts
  std::string cursorProblem{};
};

Sessions lookAtSessions(const Activity& activity);

}  // namespace pelmar::status
