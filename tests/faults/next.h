#pragma once

// The function that a preloaded one stands before.

#include <dlfcn.h>

namespace pelmar::test {

// `like` names the type only.
template <typename Function>
Function nextFunction(Function /*like*/, const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace pelmar::test
