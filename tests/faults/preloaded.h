#pragma once

// What the preloaded functions share: which paths are watched, and what the open descriptors are.

#include <string>
#include <string_view>

namespace pelmar::test {

// In place of an errno: the call is to do half of what it is asked for.
inline constexpr int kHalf = 0;

// Whether `path` lies below PELMAR_ROOT.
bool isWatched(std::string_view path);

// The watched path or the socket behind `descriptor`; null when it is another's.
const std::string* nameOf(int descriptor);
void setName(int descriptor, std::string name);  // an empty name is none
void clearName(int descriptor);

}  // namespace pelmar::test
