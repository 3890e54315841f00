#include "status/agent_process.h"

#include <unistd.h>

#include <sstream>

#include "platform/locations.h"
#include "platform/process.h"

namespace pelmar::status {
namespace {

constexpr std::string_view kProgram = "PelmarCoworkWatcher";

// The arguments behind the program's path, or none when the program is another. The path is told
// from arguments by its slashes, since it may hold blanks itself.
std::optional<std::vector<std::string>> argumentsOf(const std::string& command) {
  const auto at = command.find(kProgram);
  if (at == command.npos || (at > 0 && command[at - 1] != '/')) return std::nullopt;
  const std::string folder = command.substr(0, at);
  if (folder.find(" /") != folder.npos || folder.find(" -") != folder.npos) return std::nullopt;
  if (at > 0 && folder.front() != '/' && folder.front() != '.') return std::nullopt;
  std::istringstream words(command.substr(at));
  std::vector<std::string> arguments;
  for (std::string word; words >> word;) arguments.push_back(word);
  if (arguments.front() != kProgram && arguments.front() != std::string(kProgram) + "-rooted") {
    return std::nullopt;
  }
  return arguments;
}

std::chrono::seconds elapsed(std::string_view text) {
  long days = 0;
  long seconds = 0;
  long part = 0;
  for (const char c : text) {
    if (c == '-') {
      days = part;
      part = 0;
    } else if (c == ':') {
      seconds = (seconds + part) * 60;
      part = 0;
    } else {
      part = part * 10 + (c - '0');
    }
  }
  return std::chrono::seconds(days * 86400 + seconds + part);
}

}  // namespace

std::vector<RunningAgent> agentsIn(std::string_view listing) {
  std::vector<RunningAgent> agents;
  std::istringstream lines{std::string(listing)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string pid;
    std::string time;
    std::string command;
    words >> pid >> time >> std::ws;
    std::getline(words, command);
    if (const auto arguments = argumentsOf(command)) {
      agents.push_back(
          {.pid = pid, .runningFor = elapsed(time), .commandLine = parseCommandLine(*arguments)});
    }
  }
  return agents;
}

std::optional<std::vector<RunningAgent>> runningAgents() {
  const auto listing = outputOf(locations::psTool(), {"-ww", "-U", std::to_string(::getuid()), "-o",
                                                      "pid=", "-o", "etime=", "-o", "args="});
  if (!listing || listing->empty()) return std::nullopt;
  return agentsIn(*listing);
}

}  // namespace pelmar::status
