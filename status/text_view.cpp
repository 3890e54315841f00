#include "status/text_view.h"

#include <array>
#include <cstdio>

#include "platform/text.h"

namespace pelmar::status {
namespace {

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string bytes(std::int64_t count) {
  constexpr std::array<const char*, 4> kUnits = {"kB", "MB", "GB", "TB"};
  if (count < 1000) return std::to_string(count) + " bytes";
  auto size = static_cast<double>(count) / 1000;
  std::size_t unit = 0;
  for (; size >= 999.95 && unit + 1 < kUnits.size(); ++unit) size /= 1000;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", size, kUnits.at(unit));
  return text.data();
}

// A title or a file name may hold what a terminal takes for a command, in well-formed text or not.
std::string harmless(const std::string& text) {
  std::string line = repairedUtf8(text);
  for (std::size_t i = 0; i < line.size(); ++i) {
    const auto c = static_cast<unsigned char>(line[i]);
    const bool isC1 =
        c == 0xC2 && i + 1 < line.size() && static_cast<unsigned char>(line[i + 1]) < 0xA0;
    if (isC1) line.replace(i, 2, "?");
    if (c < ' ' || c == 0x7f) line[i] = '?';
  }
  return line;
}

class Page {
 public:
  explicit Page(Colour colour) : colour_(colour) {}

  void line(const std::string& heading, const std::string& text) {
    text_ += heading.empty() ? std::string(kIndent, ' ') : styled("1", heading);
    if (!heading.empty()) text_.append(kIndent - heading.size(), ' ');
    text_ += harmless(text) + '\n';
  }

  void verdict(const Report& report) {
    switch (report.verdict()) {
      case Verdict::healthy:
        text_ += styled("1;32", "healthy") + '\n';
        break;
      case Verdict::notReporting:
        text_ += styled("1;31", "not reporting") + '\n';
        break;
      case Verdict::problems:
        text_ += styled("1;33", "reporting with problems") + '\n';
        break;
    }
    for (const auto& [verdict, text] : report.findings) {
      text_ += verdict == Verdict::notReporting ? styled("31", "  x ")
               : verdict == Verdict::problems   ? styled("33", "  ! ")
                                                : std::string("  - ");
      text_ += harmless(text) + '\n';
    }
    text_ += '\n';
  }

  std::string take() { return std::move(text_); }

 private:
  static constexpr std::size_t kIndent = 10;

  std::string styled(const char* style, const std::string& text) const {
    return colour_ == Colour::no ? text : "\033[" + std::string(style) + 'm' + text + "\033[0m";
  }

  Colour colour_;
  std::string text_;
};

void showAgents(const Report& report, Page& page) {
  if (!report.agents) return page.line("Agent", "unknown");
  if (report.agents->empty()) return page.line("Agent", "not running");
  for (const RunningAgent& agent : *report.agents) {
    std::array<char, 32> poll{};
    std::snprintf(poll.data(), poll.size(), "%g", agent.commandLine.pollInterval);
    page.line("Agent", "runs since " + iso8601Milliseconds(report.now - agent.runningFor) +
                           " (pid " + agent.pid + "), poll " + poll.data() + " s" +
                           (agent.commandLine.fromStart ? ", from start" : "") +
                           (agent.commandLine.verbose ? ", verbose" : ""));
  }
}

void showProfile(const Report& report, Page& page) {
  if (const auto& profile = report.resolution.profile) {
    const std::string slug = profile->agentSlug.value_or("");
    page.line("Profile", profile->name + ": " + withoutPassword(profile->apiUrl) + ", key " +
                             masked(profile->apiKey) +
                             (slug.empty() ? ", no agent slug" : ", agent " + slug));
  } else {
    page.line("Profile", "none");
  }
  for (const auto& [source, reason] : report.resolution.passedOver) {
    page.line("", "not " + source + ": " + reason);
  }
  if (report.check) page.line("Check", *report.check);
}

std::string runOf(const Session& session) {
  if (session.runKind == RunKind::none) return ", no run";
  return (session.runKind == RunKind::daily ? ", daily run " : ", run ") + session.runId;
}

void showSession(const Session& session, Page& page) {
  std::string text = session.title + ": ";
  text += session.behind == 0 ? "all " + bytes(session.size)
                              : bytes(session.offset) + " of " + bytes(session.size) + ", " +
                                    bytes(session.behind) + " behind";
  text += session.isInCursor ? runOf(session) : ", not seen by the agent yet";
  if (session.lastStep) text += ", last step " + std::to_string(*session.lastStep);
  page.line("", text);
}

void showSessions(const Sessions& sessions, Page& page) {
  page.line("Sessions", counted(sessions.records, "record") + ", " +
                            counted(sessions.transcripts, "transcript") + ", " +
                            std::to_string(sessions.sessions.size()) + " watched, backlog " +
                            bytes(sessions.backlog));
  for (const Session& session : sessions.sessions) showSession(session, page);
  const auto showCount = [&page](const auto& list, const std::string& noun,
                                 const std::string& what) {
    if (!list.empty()) page.line("", counted(list.size(), noun) + ' ' + what);
  };
  showCount(sessions.recordsWithoutTranscript, "record", "without a transcript");
  showCount(sessions.transcriptsWithoutRecord, "transcript", "without a record (not watched)");
  showCount(sessions.uselessRecords, "record", "without a session id");
}

std::string countsOf(const std::map<std::int64_t, std::size_t>& counts) {
  if (counts.empty()) return "none";
  std::string text;
  for (const auto& [status, count] : counts) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " x " +
            (status == 0 ? "no answer" : std::to_string(status));
  }
  return text;
}

void showRequest(const std::string& what, const std::optional<Request>& request, Page& page) {
  if (!request) return;
  std::string outcome = request->error;
  if (outcome.empty()) {
    outcome = request->status == 0 ? "no answer in time" : std::to_string(request->status);
  }
  page.line("", what + ' ' + request->time + ": " + outcome + ", " +
                    std::to_string(request->milliseconds) + " ms, " + request->path);
}

void showActivity(const Activity& activity, Page& page) {
  page.line("Requests", "last hour: " + countsOf(activity.lastHour) +
                            "; last day: " + countsOf(activity.lastDay) +
                            (activity.isWhole ? "" : " (of the newest part of the log)"));
  showRequest("last success", activity.lastSuccess, page);
  showRequest("last failure", activity.lastFailure, page);
  showRequest("slowest of the day", activity.slowestOfDay, page);
}

}  // namespace

std::string textViewOfConfig(const Report& report, Colour colour) {
  Page page(colour);
  page.verdict(report);
  showProfile(report, page);
  return page.take();
}

std::string textView(const Report& report, Colour colour) {
  Page page(colour);
  page.verdict(report);
  showAgents(report, page);
  showProfile(report, page);
  showSessions(report.sessions, page);
  showActivity(report.activity, page);
  return page.take();
}

}  // namespace pelmar::status
