#include "watcher/line_splitting.h"

namespace pelmar {

std::string_view splitLinesKeepPartial(std::string_view text,
                                       const std::function<bool(std::string_view)>& onLine) {
  const auto lastFeed = text.rfind('\n');
  if (lastFeed == text.npos) return text;
  std::string_view rest = text.substr(0, lastFeed + 1);
  while (!rest.empty()) {
    const auto feed = rest.find('\n');
    if (!onLine(rest.substr(0, feed))) break;
    rest.remove_prefix(feed + 1);
  }
  return text.substr(lastFeed + 1);
}

}  // namespace pelmar
