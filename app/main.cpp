#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "watcher/cowork_audit_watcher.h"

int main(int argc, char** argv) {
  // Before the first message: a stderr or a connection that is gone must end a write, not the
  // agent.
  std::signal(SIGPIPE, SIG_IGN);
  pelmar::returnLargeMemory();
  constexpr pelmar::Logger logger("cowork-watcher");
  logger.message("PelmarCoworkWatcher starting (pid=" + std::to_string(::getpid()) + ")");

  const auto commandLine = pelmar::parseCommandLine(std::vector<std::string>(argv, argv + argc));
  const pelmar::CoworkAuditWatcher runner(commandLine.pollInterval, commandLine.fromStart,
                                          commandLine.verbose);
  runner.run();
  logger.error("CoworkWatcher main loop returned — exiting for launchd respawn");
  return 1;
}
