#pragma once

// What is wrong or surprising in the text of a configuration file, in words. Takes the lines as the
// agent's own parser does.

#include <cstddef>
#include <string>
#include <vector>

namespace pelmar::status {

struct ConfigFinding {
  std::size_t line = 0;  // from 1; 0 concerns the whole file
  std::string text;      // never holds a key
  bool isNote = false;   // surprising at most: it costs no report

  bool operator==(const ConfigFinding&) const = default;
};

// In the order of the lines. Empty for a file that does what it seems to say.
std::vector<ConfigFinding> configFindings(const std::string& text);

}  // namespace pelmar::status
