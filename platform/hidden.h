#pragma once

namespace pelmar {

// Whether the entry `name` of the open folder `folder` carries the file system's hidden flag itself
// (chflags(2) on macOS). False where there is no such flag.
bool hasHiddenFlag(int folder, const char* name);

}  // namespace pelmar
