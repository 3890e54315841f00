#include "platform/pause.h"

#include <gtest/gtest.h>

#include <limits>

namespace pelmar {
namespace {

// What would sleep never comes back within a test's time limit.
TEST(PauseFor, DoesNotPauseForNothing) {
  using Limits = std::numeric_limits<double>;
  for (const double seconds : {0.0, -0.0, -1.0, -1e300, -Limits::infinity(), Limits::quiet_NaN()}) {
    pauseFor(seconds);
  }
}

TEST(PauseFor, ReturnsFromTheShortestPauses) {
  for (const double seconds : {std::numeric_limits<double>::denorm_min(), 1e-12, 1e-9, 1e-3}) {
    pauseFor(seconds);
  }
}

}  // namespace
}  // namespace pelmar
