#pragma once

#include <optional>
#include <string>
#include <vector>

namespace pelmar::status {

struct Switches {
  bool json = false;
  bool check = false;
  bool follow = false;
  bool help = false;
  bool version = false;
  std::optional<std::string> configFile{};

  bool operator==(const Switches&) const = default;
};

// `arguments` without the program's path; none for what it does not know, a --config without a
// file, and --config together with --check or --follow. Unlike the agent's, whose command line is
// written once: a person is better told.
std::optional<Switches> parseSwitches(const std::vector<std::string>& arguments);

}  // namespace pelmar::status
