#include "status/switches.h"

namespace pelmar::status {

std::optional<Switches> parseSwitches(const std::vector<std::string>& arguments) {
  Switches switches;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--json") {
      switches.json = true;
    } else if (argument == "--check") {
      switches.check = true;
    } else if (argument == "--follow") {
      switches.follow = true;
    } else if (argument == "--help") {
      switches.help = true;
    } else if (argument == "--version") {
      switches.version = true;
    } else if (argument == "--config" && i + 1 < arguments.size()) {
      switches.configFile = arguments[++i];
    } else {
      return std::nullopt;
    }
  }
  if (switches.configFile && (switches.check || switches.follow)) return std::nullopt;
  return switches;
}

}  // namespace pelmar::status
