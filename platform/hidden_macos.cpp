#include <sys/stat.h>

#include "platform/hidden.h"

namespace pelmar {

bool hasHiddenFlag(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && (status.st_flags & UF_HIDDEN) != 0;
}

}  // namespace pelmar
