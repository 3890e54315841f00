#pragma once

#include <optional>
#include <string>
#include <vector>

namespace pelmar {

// What `tool` (an absolute path) writes to its standard output when run with `arguments`, or none
// when it cannot be started. Its standard error is thrown away and its exit status not looked at.
// Blocks until the tool has ended and nobody holds its standard output any more.
std::optional<std::string> outputOf(const std::string& tool,
                                    const std::vector<std::string>& arguments);

}  // namespace pelmar
