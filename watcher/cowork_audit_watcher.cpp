#include "watcher/cowork_audit_watcher.h"

#include <chrono>

#include "config/pelmar_config.h"
#include "observe/observe_client.h"
#include "platform/log.h"
#include "platform/pause.h"
#include "watcher/poll_pass.h"

namespace pelmar {
namespace {

constexpr Logger logger("cowork-watcher");
constexpr double kHeartbeatInterval = 300;  // seconds

double secondsSince1970() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(sinceEpoch).count();
}

}  // namespace

CoworkAuditWatcher::CoworkAuditWatcher(double pollInterval, bool fromStart, bool verbose)
    : pollInterval_(pollInterval),
      fromStart_(fromStart),
      verbose_(verbose),
      cursorFile_(cursorPath()) {}

void CoworkAuditWatcher::run() const {
  const auto profile = PelmarConfig::resolveProfile();
  if (!profile) {
    logger.error(
        "No profile in ~/.pelmar/config (need [claude-cowork] or [claude-code]) — exiting");
    return;
  }
  const std::string agentSlug = profile->agentSlug.value_or("");
  if (agentSlug.empty()) {
    logger.error("No agent_slug configured — runs will be created without Tandem attribution");
  }
  const ObserveClient client(profile->apiUrl, profile->apiKey);
  logger.message("watching cowork sessions; profile=" + profile->name + " agent=" + agentSlug +
                 " poll=" + std::to_string(pollInterval_) + "s");

  auto [state, cursorProblem] = cursorFile_.load();
  Journal journal(cursorPath());
  if (cursorProblem.empty()) resume(state, journal);  // it says only what changed
  if (!fromStart_) seedCursorToEOF(state, cursorFile_, journal);
  double lastHeartbeat = 0;
  for (;;) {
    pollOnce(state, cursorFile_, journal, client, agentSlug, verbose_);
    const double now = secondsSince1970();
    if (!agentSlug.empty() && isHeartbeatDue(now, lastHeartbeat)) {
      client.heartbeat(agentSlug);
      lastHeartbeat = now;
    }
    pauseFor(pollInterval_);
  }
}

bool isHeartbeatDue(double now, double lastHeartbeat) {
  return now - lastHeartbeat >= kHeartbeatInterval;
}

}  // namespace pelmar
