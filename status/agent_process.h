#pragma once

// The agents that run for this user, as the system's ps lists them. Looks only; signals nobody.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/command_line.h"

namespace pelmar::status {

struct RunningAgent {
  std::string pid;
  std::chrono::seconds runningFor{};
  CommandLine commandLine{};
};

// None when ps cannot be run. Blocks until it has ended.
std::optional<std::vector<RunningAgent>> runningAgents();

// The agents in a listing whose lines are a process id, the elapsed time ([[dd-]hh:]mm:ss) and the
// command line, each behind blanks.
std::vector<RunningAgent> agentsIn(std::string_view listing);

}  // namespace pelmar::status
