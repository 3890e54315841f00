#pragma once

#include <string>

namespace pelmar {

// The name that the computer goes by, without the ".local" of multicast DNS; empty when there is
// none.
std::string hostName();

}  // namespace pelmar
