#pragma once

#include <string>

namespace pelmar {

// The computer's name as its user set it, without the ".local" of multicast DNS; empty when
// there is none.
std::string hostName();

}  // namespace pelmar
