#include "watcher/audit_files.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <optional>
#include <string_view>

#include "platform/directory_walk.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/locations.h"

namespace pelmar {
namespace {

// The dotted ones cannot match, since hidden entries are left out already.
constexpr std::array<std::string_view, 10> skipDirs = {
    "cowork_plugins", ".claude.json.lock", "node_modules", ".git",          "shim-lib",
    "shim-perm",      "outputs",           "uploads",      "skills-plugin", "debug"};

bool isSkipped(std::string_view name) {
  return std::find(skipDirs.begin(), skipDirs.end(), name) != skipDirs.end();
}

bool isSessionRecord(std::string_view name) {
  return name.starts_with("local_") && name.ends_with(".json");
}

// `name` without the extension "jsonl", or none when it has another.
std::optional<std::string_view> transcriptName(std::string_view name) {
  constexpr std::string_view kExtension = ".jsonl";
  if (!name.ends_with(kExtension)) return std::nullopt;
  return name.substr(0, name.size() - kExtension.size());
}

// Which ids are in none of some sessions, but for a few that are not told (a Bloom filter with one
// hash): most transcripts are of no recorded session, and these bits stay in a cache that a table
// of ids falls out of.
class Sieve {
 public:
  explicit Sieve(const SessionIds& ids) {
    for (const auto& id : ids) bits_.set(bitOf(id));
  }
  bool lets(std::string_view id) const { return bits_.test(bitOf(id)); }

 private:
  static constexpr std::size_t kBits = 1 << 16;
  static std::size_t bitOf(std::string_view id) { return TextHash()(id) % kBits; }

  std::bitset<kBits> bits_;
};

}  // namespace

void visitSessionRecords(
    const std::function<void(const std::string& path, const std::string& text)>& onRecord,
    const std::function<void(const std::string& folder, int error)>& onUnreadable) {
  std::string text;
  const auto visit = [&](const Entry& entry) {
    if (!isSessionRecord(entry.name)) return Descend::yes;
    readFileAt(entry.folder, entry.name.data(), text);
    onRecord(entry.path, text);
    return Descend::yes;
  };
  walkFolder(locations::homeFolder() + "/Library/Application Support/Claude/claude-code-sessions",
             visit, onUnreadable);
}

void visitTranscripts(
    const std::function<void(const Entry& entry, std::string_view id)>& onTranscript,
    const std::function<void(const std::string& folder, int error)>& onUnreadable) {
  const auto visit = [&onTranscript](const Entry& entry) {
    if (entry.type == EntryType::folder && isSkipped(entry.name)) return Descend::no;
    const auto name = transcriptName(entry.name);
    if (name && entry.type == EntryType::regularFile) onTranscript(entry, *name);
    return Descend::yes;
  };
  walkFolder(locations::homeFolder() + "/.claude/projects", visit, onUnreadable);
}

SessionIds desktopSessionIds() {
  SessionIds ids;
  visitSessionRecords([&ids](const std::string& /*path*/, const std::string& text) {
    auto id = textInJsonObject(text, kSessionId);
    if (!id.empty()) ids.insert(std::move(id));
  });
  return ids;
}

void visitAuditFiles(const std::function<void(const Entry& entry)>& onFile) {
  const SessionIds ids = desktopSessionIds();
  if (ids.empty()) return;
  const Sieve sieve(ids);
  visitTranscripts([&](const Entry& entry, std::string_view id) {
    if (sieve.lets(id) && ids.contains(id)) onFile(entry);
  });
}

std::vector<std::string> auditFiles() {
  std::vector<std::string> files;
  visitAuditFiles([&files](const Entry& entry) { files.push_back(entry.path); });
  return files;
}

}  // namespace pelmar
