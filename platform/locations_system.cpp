#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/locations.h"

namespace pelmar::locations {
namespace {

std::string homeFromPasswordDatabase() {
  const long hint = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(hint > 0 ? static_cast<std::size_t>(hint) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  std::string home = found == nullptr || found->pw_dir == nullptr ? "" : found->pw_dir;
  while (home.ends_with('/')) home.pop_back();
  return home;
}

}  // namespace

std::string homeFolder() {
  // Asked once: every answer reads the password database again.
  static const std::string home = homeFromPasswordDatabase();
  return home;
}

std::string setupFolder() { return "/private/tmp/dev.pelmar.setup"; }

std::string ioregTool() { return "/usr/sbin/ioreg"; }

std::string psTool() { return "/bin/ps"; }

}  // namespace pelmar::locations
