#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "platform/log.h"
#include "watcher/cowork_audit_watcher.h"

int main(int argc, char** argv) {
  constexpr pelmar::Logger logger("cowork-watcher");
  logger.message("PelmarCoworkWatcher starting (pid=" + std::to_string(::getpid()) + ")");
  std::signal(SIGPIPE,
              SIG_IGN);  // a connection or a stderr that is gone ends a write, not the agent

  const auto commandLine = pelmar::parseCommandLine(std::vector<std::string>(argv, argv + argc));
  const pelmar::CoworkAuditWatcher runner(commandLine.pollInterval, commandLine.fromStart,
                                          commandLine.verbose);
  runner.run();
  logger.error("CoworkWatcher main loop returned — exiting for launchd respawn");
  return 1;
}
