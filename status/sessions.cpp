#include "status/sessions.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <system_error>

#include "observe/observe_client.h"
#include "observe/run_state.h"
#include "platform/files.h"
#include "platform/json.h"
#include "watcher/audit_files.h"
#include "watcher/cursor_file.h"
#include "watcher/poll_pass.h"

namespace pelmar::status {
namespace {

std::string wordsFor(int error) {
  std::string words = std::generic_category().message(error);
  // What macOS answers to a program that was not let in, where permissions alone would let it.
  if (error == EPERM) {
    words += ": on macOS this may be a privacy permission (System Settings, Privacy & Security)";
  }
  return words;
}

std::optional<Refusals> refusalsOf(const Session& session, const Activity& activity) {
  if (session.behind == 0) return std::nullopt;
  for (const auto& [path, refusals] : activity.refusedLastHour) {
    const bool isItsOwn = session.runId.empty()
                              ? path.ends_with("/runs/daily/") || path.ends_with("/runs/start/")
                              : path.ends_with(runPath(session.runId, "/steps/"));
    if (isItsOwn && refusals.count > 1) return refusals;
  }
  return std::nullopt;
}

void readState(const json& values, Session& session) {
  session.isInCursor = true;
  session.runId = textAt(values, runState::kRunId);
  if (!session.runId.empty()) {
    session.runKind =
        textAt(values, runState::kDailySessionDate).empty() ? RunKind::ownRun : RunKind::daily;
  }
  const auto next = values.find(runState::kStepPosition);
  const auto position = next == values.end() ? std::nullopt : exactInteger(*next);
  if (position && *position > 0) session.lastStep = *position - 1;
}

class Look {
 public:
  explicit Look(const Activity& activity) : activity_(activity) {}

  Sessions take() {
    auto cursor = CursorFile(cursorPath()).load();
    cursor_ = std::move(cursor.state);
    found_.cursorProblem = std::move(cursor.problem);
    Journal journal(cursorPath());
    if (found_.cursorProblem.empty()) resume(cursor_, journal);
    const auto onUnreadable = [this](const std::string& folder, int error) {
      if (error != ENOENT) found_.unreadable.push_back({folder, wordsFor(error)});
    };
    visitSessionRecords(
        [this](const std::string& path, const std::string& text) { takeRecord(path, text); },
        onUnreadable);
    visitTranscripts(
        [this](const Entry& entry, std::string_view id) { takeTranscript(entry.path, id); },
        onUnreadable);
    for (const auto& [id, title] : titles_) {
      if (!withTranscript_.contains(id)) found_.recordsWithoutTranscript.push_back(id);
    }
    return std::move(found_);
  }

 private:
  void takeRecord(const std::string& path, const std::string& text) {
    ++found_.records;
    std::string id = textInJsonObject(text, kSessionId);
    if (!id.empty()) {
      titles_.emplace(std::move(id), textInJsonObject(text, "title"));
    } else if (const int error = openError(path)) {
      found_.unreadable.push_back({path, wordsFor(error)});
    } else {
      found_.uselessRecords.push_back(path);
    }
  }

  void takeTranscript(const std::string& path, std::string_view id) {
    ++found_.transcripts;
    const auto title = titles_.find(id);
    if (title == titles_.end()) {
      found_.transcriptsWithoutRecord.push_back(path);
      return;
    }
    withTranscript_.insert(title->first);
    if (const int error = openError(path)) found_.unreadable.push_back({path, wordsFor(error)});
    Session session{.id = title->first,
                    .title = title->second.empty() ? title->first : title->second,
                    .path = path,
                    .size = sizeOf(path).value_or(0)};
    const auto known = cursor_.find(path);
    const auto stored = known == cursor_.end() ? 0 : known->second.offset();
    session.offset = std::min(stored, session.size);
    session.behind = session.size - session.offset;
    if (known != cursor_.end()) readState(known->second.values(), session);
    session.heldUpBy = refusalsOf(session, activity_);
    found_.backlog += session.behind;
    found_.sessions.push_back(std::move(session));
  }

  const Activity& activity_;
  CursorState cursor_;
  std::map<std::string, std::string, std::less<>> titles_;  // by session id
  std::set<std::string> withTranscript_;
  Sessions found_;
};

}  // namespace

Sessions lookAtSessions(const Activity& activity) { return Look(activity).take(); }

}  // namespace pelmar::status
