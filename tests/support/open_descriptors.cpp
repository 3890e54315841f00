#include "tests/support/open_descriptors.h"

#include <fcntl.h>

namespace pelmar::test {

int openDescriptors() {
  constexpr int kBeyondAnyTest = 1024;
  int count = 0;
  for (int descriptor = 0; descriptor < kBeyondAnyTest; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) != -1) ++count;
  }
  return count;
}

}  // namespace pelmar::test
