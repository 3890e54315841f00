#include "status/json_view.h"

#include "platform/json.h"

namespace pelmar::status {
namespace {

const char* nameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::healthy:
      return "healthy";
    case Verdict::notReporting:
      return "not reporting";
    case Verdict::problems:
      return "problems";
  }
  return "";
}

json agentsOf(const Report& report) {
  if (!report.agents) return nullptr;
  json agents = json::array();
  for (const RunningAgent& agent : *report.agents) {
    agents.push_back({{"pid", agent.pid},
                      {"since", iso8601Milliseconds(report.now - agent.runningFor)},
                      {"poll", agent.commandLine.pollInterval},
                      {"from_start", agent.commandLine.fromStart},
                      {"verbose", agent.commandLine.verbose}});
  }
  return agents;
}

json profileOf(const std::optional<Profile>& profile) {
  if (!profile) return nullptr;
  return {{"name", profile->name},
          {"api_url", withoutPassword(profile->apiUrl)},
          {"api_key", masked(profile->apiKey)},
          {"agent_slug", profile->agentSlug.value_or("")}};
}

json requestOf(const std::optional<Request>& request) {
  if (!request) return nullptr;
  return {{"time", request->time},
          {"path", request->path},
          {"status", request->status},
          {"ms", request->milliseconds},
          {"error", request->error}};
}

json countsOf(const std::map<std::int64_t, std::size_t>& counts) {
  json object = json::object();
  for (const auto& [status, count] : counts) object[std::to_string(status)] = count;
  return object;
}

json sessionOf(const Session& session) {
  json object = {{"id", session.id},
                 {"title", session.title},
                 {"path", session.path},
                 {"size", session.size},
                 {"offset", session.offset},
                 {"behind", session.behind},
                 {"in_cursor", session.isInCursor},
                 {"run_id", session.runId},
                 {"run_kind", session.runKind == RunKind::none    ? "none"
                              : session.runKind == RunKind::daily ? "daily"
                                                                  : "session"},
                 {"last_step", nullptr},
                 {"held_up_by", nullptr}};
  if (session.lastStep) object["last_step"] = *session.lastStep;
  if (session.heldUpBy) {
    object["held_up_by"] = {{"status", session.heldUpBy->status},
                            {"count", session.heldUpBy->count},
                            {"since", session.heldUpBy->since}};
  }
  return object;
}

json sessionsOf(const Sessions& sessions) {
  json all = json::array();
  for (const Session& session : sessions.sessions) all.push_back(sessionOf(session));
  json unreadable = json::array();
  for (const auto& [path, reason] : sessions.unreadable) {
    unreadable.push_back({{"path", path}, {"reason", reason}});
  }
  return {{"records", sessions.records},
          {"transcripts", sessions.transcripts},
          {"backlog", sessions.backlog},
          {"watched", std::move(all)},
          {"records_without_transcript", sessions.recordsWithoutTranscript},
          {"transcripts_without_record", sessions.transcriptsWithoutRecord},
          {"useless_records", sessions.uselessRecords},
          {"unreadable", std::move(unreadable)}};
}

json activityOf(const Activity& activity) {
  return {{"is_whole", activity.isWhole},
          {"last_success", requestOf(activity.lastSuccess)},
          {"last_failure", requestOf(activity.lastFailure)},
          {"slowest_of_day", requestOf(activity.slowestOfDay)},
          {"last_hour", countsOf(activity.lastHour)},
          {"last_day", countsOf(activity.lastDay)}};
}

}  // namespace

json jsonViewOfConfig(const Report& report) {
  json passedOver = json::array();
  for (const auto& [source, reason] : report.resolution.passedOver) {
    passedOver.push_back({{"source", source}, {"reason", reason}});
  }
  json findings = json::array();
  for (const auto& [verdict, text] : report.findings) {
    findings.push_back(
        {{"severity", verdict == Verdict::healthy ? "note" : nameOf(verdict)}, {"text", text}});
  }
  return {{"verdict", nameOf(report.verdict())},
          {"time", iso8601Milliseconds(report.now)},
          {"findings", std::move(findings)},
          {"config", report.configPath},
          {"profile", profileOf(report.resolution.profile)},
          {"passed_over", std::move(passedOver)}};
}

json jsonView(const Report& report) {
  json object = jsonViewOfConfig(report);
  object["agents"] = agentsOf(report);
  object["sessions"] = sessionsOf(report.sessions);
  object["activity"] = activityOf(report.activity);
  object["check"] = report.check ? json(*report.check) : json();
  return object;
}

}  // namespace pelmar::status
