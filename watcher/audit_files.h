#pragma once

// Which transcripts are watched: those named after a session that the desktop application has
// recorded. Both walks start from scratch on every call and never fail; what cannot be read is left
// out.

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace pelmar {

using SessionIds = std::set<std::string, std::less<>>;

// The CLI session ids of the session records (local_*.json) below
// ~/Library/Application Support/Claude/claude-code-sessions.
SessionIds desktopSessionIds();

// The paths of the transcripts (<session id>.jsonl, regular files) below ~/.claude/projects, in the
// order of the walk. Empty without a session record.
std::vector<std::string> auditFiles();

}  // namespace pelmar
