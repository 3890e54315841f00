#include "platform/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace pelmar {

void fatal(const char* reason) {
  std::fprintf(stderr, "Fatal error: %s\n", reason);
  std::abort();
}

}  // namespace pelmar
