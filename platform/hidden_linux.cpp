#include "platform/hidden.h"

namespace pelmar {

bool hasHiddenFlag(const std::string& /*path*/) { return false; }

}  // namespace pelmar
