#pragma once

#include <functional>
#include <string_view>

namespace pelmar {

// Hands `onLine` every complete line of `text` in order, without its line feed, until it answers
// false. A line ends at a line feed and nowhere else. Returns the partial line: what stands behind
// the last line feed, empty when nothing does. All of it points into `text`.
std::string_view splitLinesKeepPartial(std::string_view text,
                                       const std::function<bool(std::string_view)>& onLine);

}  // namespace pelmar
