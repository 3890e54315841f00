#include "platform/host_name.h"

#include <unistd.h>

#include <string_view>

namespace pelmar {

std::string hostName() {
  char buffer[256] = {};  // POSIX: at most 255 bytes, the terminator not promised
  if (::gethostname(buffer, sizeof buffer - 1) != 0) return {};
  std::string name = buffer;
  constexpr std::string_view kMulticastDomain = ".local";
  if (name.ends_with(kMulticastDomain)) name.resize(name.size() - kMulticastDomain.size());
  return name;
}

}  // namespace pelmar
