#include "app/command_line.h"

#include <cstdlib>
#include <string_view>

namespace pelmar {

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
  CommandLine commandLine;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] == "--poll" && i + 1 < arguments.size()) {
      // What is no number may be a switch, and is looked at next.
      if (const auto seconds = secondsFrom(arguments[i + 1])) {
        commandLine.pollInterval = *seconds;
        ++i;
      }
    } else if (arguments[i] == "--from-start") {
      commandLine.fromStart = true;
    } else if (arguments[i] == "--verbose") {
      commandLine.verbose = true;
    }
  }
  return commandLine;
}

std::optional<double> secondsFrom(const std::string& text) {
  constexpr std::string_view kBlanks("\0\t\n\v\f\r ", 7);
  if (text.empty() || kBlanks.find(text.front()) != kBlanks.npos) return std::nullopt;
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);  // the program keeps to the C locale
  if (end != text.c_str() + text.size()) return std::nullopt;
  return seconds;
}

}  // namespace pelmar
