#pragma once

// The end of the process by a programming error or by one of the two conditions that
// stop the agent on purpose.

namespace pelmar {

// Writes "Fatal error: " and `reason` to stderr and aborts. `reason` never holds
// transcript text.
[[noreturn]] void fatal(const char* reason);

}  // namespace pelmar
