#pragma once

#include <optional>
#include <string>
#include <vector>

namespace pelmar {

struct CommandLine {
  double pollInterval = 2.0;  // seconds; any double, also infinite, negative or not a number
  bool fromStart = false;
  bool verbose = false;
};

// Reads the switches --poll, --from-start and --verbose. What it does not know, and a --poll
// without a number behind it, is passed over without a message. `arguments` begin with the
// program's path.
CommandLine parseCommandLine(const std::vector<std::string>& arguments);

// `text` as strtod reads it in the C locale, when that takes all of it and it does not begin with a
// blank; none otherwise.
std::optional<double> secondsFrom(const std::string& text);

}  // namespace pelmar
