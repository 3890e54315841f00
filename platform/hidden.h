#pragma once

#include <string>

namespace pelmar {

// Whether the entry at `path` itself carries the file system's hidden flag (chflags(2) on macOS).
// False where there is no such flag.
bool hasHiddenFlag(const std::string& path);

}  // namespace pelmar
