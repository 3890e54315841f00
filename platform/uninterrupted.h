#pragma once

// System calls that a signal may interrupt. The agent handles no signal, but being stopped and
// continued is enough where a home is on a file system in user space: there every call may answer
// EINTR, and none of them says so.

#include <cerrno>
#include <type_traits>

namespace pelmar {

// What `call` answers, made again as long as it is interrupted. An answer below zero, or null, is a
// failure where errno is set: it is 0 before each call, as readdir(3) wants it.
template <typename Call>
auto uninterrupted(Call call) {
  for (;;) {
    errno = 0;
    const auto answer = call();
    bool isFailure = false;
    if constexpr (std::is_pointer_v<decltype(answer)>) {
      isFailure = answer == nullptr;
    } else {
      isFailure = answer < 0;
    }
    if (!isFailure || errno != EINTR) return answer;
  }
}

}  // namespace pelmar
