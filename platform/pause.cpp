#include "platform/pause.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace pelmar {

void pauseFor(double seconds) {
  // By the day: a clock's count of nanoseconds cannot hold every double.
  constexpr double kDay = 86400;
  while (seconds > 0) {
    const double part = std::min(seconds, kDay);
    std::this_thread::sleep_for(std::chrono::duration<double>(part));
    seconds -= part;
  }
}

}  // namespace pelmar
