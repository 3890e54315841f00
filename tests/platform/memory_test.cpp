#include "platform/memory.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstddef>
#include <vector>

namespace pelmar {
namespace {

// What the system has lent for one piece each.
std::size_t lentBytes() { return ::mallinfo2().hblkhd; }

// More than `before` as long as the piece lives, and no more behind it.
void expectLentAndGivenBack(std::size_t bytes, std::size_t before) {
  {
    const std::vector<char> piece(bytes);
    EXPECT_GE(lentBytes(), before + piece.size());
  }
  EXPECT_EQ(lentBytes(), before);
}

TEST(ReturnLargeMemory, APieceGoesBackEvenBehindALargerOne) {
  returnLargeMemory();
  const auto before = lentBytes();
  expectLentAndGivenBack(8 * 1024 * 1024, before);  // now the C library would keep what is smaller
  expectLentAndGivenBack(1024 * 1024, before);
}

}  // namespace
}  // namespace pelmar
