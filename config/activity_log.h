#pragma once

// A line a request in ~/.pelmar/logs/cowork-watcher.activity.jsonl, for people to read; the agent
// never reads it back. Only grows: nothing rotates or trims it.

#include <cstdint>
#include <optional>
#include <string>

namespace pelmar::ActivityLog {

std::string path();

// Appends one record (its format: docs/files.md). `ms` is the elapsed time in milliseconds, `bytes`
// the size of the answer's body; an empty `summary` or `error` leaves its key out. Every failure
// is swallowed: a record that cannot be written is missing, nothing else changes.
void record(const std::string& method, const std::string& url, int status, std::int64_t ms,
            std::int64_t bytes, const std::string& summary,
            const std::optional<std::string>& error);

}  // namespace pelmar::ActivityLog
