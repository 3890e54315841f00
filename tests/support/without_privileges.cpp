#include "tests/support/without_privileges.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace pelmar::test {
namespace {

constexpr uid_t kNobody = 65534;

}  // namespace

WithoutPrivileges::WithoutPrivileges() {
  if (::getuid() == 0 && ::seteuid(kNobody) != 0) {
    throw std::system_error(errno, std::generic_category(), "seteuid");
  }
}

WithoutPrivileges::~WithoutPrivileges() {
  if (::getuid() == 0 && ::seteuid(0) != 0) std::abort();
}

void openToAll(const std::string& folder) {
  namespace fs = std::filesystem;
  constexpr auto kGoThrough = fs::perms::group_read | fs::perms::group_exec |
                              fs::perms::others_read | fs::perms::others_exec;
  fs::permissions(folder, kGoThrough, fs::perm_options::add);
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_symlink()) continue;
    fs::permissions(entry.path(), kGoThrough, fs::perm_options::add);
  }
}

}  // namespace pelmar::test
