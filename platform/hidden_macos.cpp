#include <fcntl.h>
#include <sys/stat.h>

#include "platform/hidden.h"

namespace pelmar {

bool hasHiddenFlag(int folder, const char* name) {
  struct stat status {};
  return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         (status.st_flags & UF_HIDDEN) != 0;
}

}  // namespace pelmar
