#pragma once

// The platform UUID of the machine, as the system registry tool reports it.

#include <string>
#include <string_view>

namespace pelmar::HardwareID {

// The UUID as printed, or the empty string when it cannot be found. The tool is run on the first
// call only; its answer, and its failure, hold for the life of the process.
std::string ioPlatformUUID();

// The UUID in the tool's output: the value between double quotes behind the first "= " of the first
// line that names "IOPlatformUUID" and has one; else empty. Empty too when the output is not UTF-8.
std::string uuidIn(std::string_view output);

}  // namespace pelmar::HardwareID
