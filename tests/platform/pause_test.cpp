#include "platform/pause.h"

#include <gtest/gtest.h>

#include <chrono>
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

TEST(PauseFor, LastsAtLeastAsLongAsItIsAskedTo) {
  const auto begin = std::chrono::steady_clock::now();
  pauseFor(0.05);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

}  // namespace
}  // namespace pelmar
