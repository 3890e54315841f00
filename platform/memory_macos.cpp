#include "platform/memory.h"

namespace pelmar {

void returnLargeMemory() {}

}  // namespace pelmar
