#include "platform/hidden.h"

namespace pelmar {

bool hasHiddenFlag(int /*folder*/, const char* /*name*/) { return false; }

}  // namespace pelmar
