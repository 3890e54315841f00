#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "platform/json.h"
#include "platform/pause.h"
#include "status/json_view.h"
#include "status/report.h"
#include "status/switches.h"
#include "status/text_view.h"

namespace pelmar::status {
namespace {

constexpr int kUsageError = 64;     // as sysexits.h has it; 0 to 2 are verdicts
constexpr double kFollowPause = 2;  // seconds

constexpr const char* kUsage =
    R"(usage: pelmar-cowork-status [--json] [--check] [--follow] [--config FILE]

Says whether the agent reports, and why not. Changes nothing.

  --json         for scripts
  --check        ask the service whether the key is accepted, by a heartbeat
  --config FILE  look at this configuration file only
  --follow       keep the view up to date until it is interrupted
  --help, --version

Exit status: 0 healthy, 1 not reporting, 2 reporting with problems, 64 bad arguments.
)";

Colour terminalColour() {
  const char* noColour = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe)
  const bool isUnwanted = noColour != nullptr && noColour[0] != '\0';
  return ::isatty(STDOUT_FILENO) == 1 && !isUnwanted ? Colour::yes : Colour::no;
}

Report take(const Switches& switches) {
  return switches.configFile ? reportOnConfig(*switches.configFile) : takeReport(switches.check);
}

std::string viewOf(const Report& report, const Switches& switches) {
  const bool isConfig = switches.configFile.has_value();
  if (switches.json) {
    return compactJson(isConfig ? jsonViewOfConfig(report) : jsonView(report)) + '\n';
  }
  const Colour colour = terminalColour();
  return isConfig ? textViewOfConfig(report, colour) : textView(report, colour);
}

int run(const std::vector<std::string>& arguments) {
  const auto switches = parseSwitches(arguments);
  if (!switches) {
    std::cerr << kUsage;
    return kUsageError;
  }
  if (switches->help || switches->version) {
    std::cout << (switches->help ? kUsage : "pelmar-cowork-status " PELMAR_VERSION "\n");
    return 0;
  }
  for (;;) {
    const Report report = take(*switches);
    const bool clears = switches->follow && !switches->json && ::isatty(STDOUT_FILENO) == 1;
    std::cout << (clears ? "\033[H\033[J" : "") << viewOf(report, *switches) << std::flush;
    if (!switches->follow || !std::cout) return static_cast<int>(report.verdict());
    pauseFor(kFollowPause);
  }
}

}  // namespace
}  // namespace pelmar::status

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a service that hangs up; a reader of --follow that went shows
  return pelmar::status::run({argv + 1, argv + argc});
}
