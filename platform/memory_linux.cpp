#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "platform/memory.h"

namespace pelmar {

void returnLargeMemory() {
#if defined(__GLIBC__)
  // It would raise this limit, its own, each time something larger is freed, up to 32 MiB; what is
  // below comes from a heap in which small pieces keep large ones from being given back.
  constexpr int kLargeBytes = 128 * 1024;
  ::mallopt(M_MMAP_THRESHOLD, kLargeBytes);
#endif
}

}  // namespace pelmar
