#include "status/report.h"

#include <algorithm>

#include "observe/observe_client.h"
#include "platform/files.h"

namespace pelmar::status {
namespace {

void add(Report& report, Verdict verdict, std::string text) {
  report.findings.push_back({.verdict = verdict, .text = std::move(text)});
}

void judgeAgent(Report& report) {
  if (!report.agents) {
    add(report, Verdict::problems, "ps cannot be run, so nobody knows whether the agent runs");
  } else if (report.agents->empty()) {
    add(report, Verdict::notReporting, "the agent is not running");
  } else if (report.agents->size() > 1) {
    add(report, Verdict::problems, "more than one agent runs: each overwrites the other's cursor");
  }
}

// `withoutProfile` says that there is none.
void judgeProfile(Report& report, const char* withoutProfile) {
  const auto& profile = report.resolution.profile;
  if (!profile && !report.isDeviceNotAsked) {
    add(report, Verdict::notReporting, withoutProfile);
  } else if (profile && profile->agentSlug.value_or("").empty() && !report.isDeviceNotAsked) {
    add(report, Verdict::problems,
        "the profile " + profile->name + " has no agent slug: no daily run, no heartbeat");
  }
  for (const auto& [line, text, isNote] : report.configFindings) {
    const std::string where = line == 0 ? "" : " line " + std::to_string(line);
    add(report, isNote ? Verdict::healthy : Verdict::problems,
        report.configPath + where + ": " + text);
  }
}

void judgeSessions(Report& report) {
  const Sessions& sessions = report.sessions;
  for (const auto& [path, reason] : sessions.unreadable) {
    // With nothing to watch, what cannot be read is the likely cause.
    add(report, sessions.sessions.empty() ? Verdict::notReporting : Verdict::problems,
        path + " cannot be read: " + reason);
  }
  if (!sessions.cursorProblem.empty()) add(report, Verdict::problems, sessions.cursorProblem);
  for (const Session& session : sessions.sessions) {
    if (session.offset < 0) {
      add(report, Verdict::notReporting,
          "the cursor has an offset below zero for \"" + session.title +
              "\": the agent ends there");
    }
    if (!session.heldUpBy) continue;
    const auto& [count, status, since] = *session.heldUpBy;
    add(report, Verdict::problems,
        "\"" + session.title + "\" is held up: the service refused an event with status " +
            std::to_string(status) + ", " + std::to_string(count) + " times since " + since);
  }
}

void judgeActivity(Report& report) {
  const Activity& activity = report.activity;
  if (!activity.problem.empty()) add(report, Verdict::problems, activity.problem);
  if (!activity.last || !activity.lastFailure || activity.failuresLastHour == 0) return;
  const Request& failure = *activity.lastFailure;
  const std::string text =
      "the latest request failed: " +
      (failure.error.empty()
           ? failure.status == 0 ? "no answer in time" : "status " + std::to_string(failure.status)
           : failure.error);
  if (activity.last->isSuccess()) {
    add(report, Verdict::problems,
        "requests that failed in the last hour: " + std::to_string(activity.failuresLastHour));
  } else {
    add(report, report.sessions.backlog > 0 ? Verdict::notReporting : Verdict::problems, text);
  }
}

// A heartbeat, the one request that changes no run.
void check(Report& report) {
  const auto& profile = report.resolution.profile;
  const std::string slug = profile ? profile->agentSlug.value_or("") : "";
  if (slug.empty()) {
    report.check = "cannot be asked: there is no profile with an agent slug";
    return;
  }
  const auto exchange = ObserveClient(profile->apiUrl, profile->apiKey).heartbeatExchange(slug);
  if (!exchange) {
    report.check = "the URL of the profile is none";
  } else if (exchange->isTimeout()) {
    report.check = "the service did not answer in time";
  } else if (exchange->error) {
    report.check = "the service cannot be reached: " + *exchange->error;
  } else {
    report.isKeyAccepted = exchange->status >= 200 && exchange->status <= 299;
    report.check = (report.isKeyAccepted ? "the service accepts the key (status "
                                         : "the service refused the heartbeat (status ") +
                   std::to_string(exchange->status) + ")";
  }
  if (!report.isKeyAccepted) add(report, Verdict::notReporting, *report.check);
}

bool isDeviceNotAsked(const PelmarConfig::Resolution& resolution) {
  return std::any_of(
      resolution.passedOver.begin(), resolution.passedOver.end(),
      [](const auto& source) { return source.reason == PelmarConfig::kDeviceNotAsked; });
}

}  // namespace

Verdict Report::verdict() const {
  const auto has = [this](Verdict verdict) {
    return std::any_of(findings.begin(), findings.end(),
                       [verdict](const Finding& finding) { return finding.verdict == verdict; });
  };
  if (has(Verdict::notReporting)) return Verdict::notReporting;
  return has(Verdict::problems) ? Verdict::problems : Verdict::healthy;
}

Report takeReport(bool asksService) {
  using PelmarConfig::Service;
  Report report{.now = std::chrono::system_clock::now()};
  report.agents = runningAgents();
  report.resolution =
      PelmarConfig::explainedProfile(asksService ? Service::isAsked : Service::isNotAsked);
  report.isDeviceNotAsked = isDeviceNotAsked(report.resolution);
  report.configPath = PelmarConfig::configPath();
  if (const auto text = readFile(report.configPath)) report.configFindings = configFindings(*text);
  report.activity = readActivity(report.now);
  report.sessions = lookAtSessions(report.activity);
  judgeAgent(report);
  judgeProfile(report, "no source gives a profile");
  judgeSessions(report);
  judgeActivity(report);
  if (asksService) check(report);
  return report;
}

Report reportOnConfig(const std::string& path) {
  Report report{.now = std::chrono::system_clock::now()};
  report.configPath = path;
  const auto text = readFile(path);
  if (!text) {
    add(report, Verdict::notReporting, unreadable(path));
    return report;
  }
  report.resolution = PelmarConfig::profileInConfig(*text, PelmarConfig::preferredSections());
  report.configFindings = configFindings(*text);
  judgeProfile(report, "the file gives no profile");
  return report;
}

std::string masked(const std::string& key) {
  constexpr std::size_t kLong = 16;
  return "****" + (key.size() < kLong ? std::string() : key.substr(key.size() - 4));
}

std::string withoutPassword(const std::string& url) {
  const auto scheme = url.find("://");
  if (scheme == url.npos) return url;
  const auto begin = scheme + 3;
  const auto at = url.substr(0, url.find_first_of("/?#", begin)).rfind('@');
  return at == url.npos ? url : url.substr(0, begin) + url.substr(at + 1);
}

}  // namespace pelmar::status
