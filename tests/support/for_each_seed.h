#pragma once

// A property as a test: `check` of the input of each seed below `count`, until one fails. The
// failure names the seed.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/support/random_input.h"

namespace pelmar::test {

template <typename Check>
void forEachSeed(std::uint64_t count, Check check) {
  for (std::uint64_t seed = 0; seed < count && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    check(RandomInput(seed));
  }
}

}  // namespace pelmar::test
