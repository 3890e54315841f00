#pragma once

// Which transcripts are watched: those named after a session that the desktop application has
// recorded. Both walks start from scratch on every call and never fail; what cannot be read is left
// out.

#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace pelmar {

// The key of a session record that names its session.
inline constexpr const char* kSessionId = "cliSessionId";

using SessionIds = std::set<std::string, std::less<>>;

// Calls `onRecord` for every session record (local_*.json), with its object or null when it cannot
// be read as one.
void visitSessionRecords(
    const std::function<void(const std::string& path, const nlohmann::json* record)>& onRecord,
    const std::function<void(const std::string& folder, int error)>& onUnreadable = {});

// Calls `onTranscript` for every transcript, watched or not, with the session id that its name is.
void visitTranscripts(
    const std::function<void(const std::string& path, std::string_view id)>& onTranscript,
    const std::function<void(const std::string& folder, int error)>& onUnreadable = {});

// The CLI session ids of the session records (local_*.json) below
// ~/Library/Application Support/Claude/claude-code-sessions.
SessionIds desktopSessionIds();

// The paths of the transcripts (<session id>.jsonl, regular files) below ~/.claude/projects, in the
// order of the walk. Empty without a session record.
std::vector<std::string> auditFiles();

}  // namespace pelmar
