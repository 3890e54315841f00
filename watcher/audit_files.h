#pragma once

// Which transcripts are watched: those named after a session that the desktop application has
// recorded. Both walks start from scratch on every call and never fail; what cannot be read is left
// out.

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/directory_walk.h"

namespace pelmar {

// The key of a session record that names its session.
inline constexpr const char* kSessionId = "cliSessionId";

// Looked up without a copy of what is looked for.
struct TextHash : std::hash<std::string_view> {
  using is_transparent = void;
};
using SessionIds = std::unordered_set<std::string, TextHash, std::equal_to<>>;

// Calls `onRecord` for every session record (local_*.json), with its text, which is empty when it
// cannot be read.
void visitSessionRecords(
    const std::function<void(const std::string& path, const std::string& text)>& onRecord,
    const std::function<void(const std::string& folder, int error)>& onUnreadable = {});

// Calls `onTranscript` for every transcript, watched or not, with the session id that its name is.
void visitTranscripts(
    const std::function<void(const Entry& entry, std::string_view id)>& onTranscript,
    const std::function<void(const std::string& folder, int error)>& onUnreadable = {});

// The CLI session ids of the session records (local_*.json) below
// ~/Library/Application Support/Claude/claude-code-sessions.
SessionIds desktopSessionIds();

// Calls `onFile` for the transcripts (<session id>.jsonl, regular files) of these sessions below
// ~/.claude/projects. For none without a session record.
void visitAuditFiles(const std::function<void(const Entry& entry)>& onFile);

// Their paths, in the order of the walk.
std::vector<std::string> auditFiles();

}  // namespace pelmar
