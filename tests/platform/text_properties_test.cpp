// What holds for any bytes, against text by the book.

#include <gmock/gmock.h>

#include <string>

#include "platform/text.h"
#include "tests/support/for_each_seed.h"
#include "tests/support/slow_text.h"

namespace pelmar {
namespace {

using test::forEachSeed;
using test::RandomInput;

constexpr std::uint64_t kCases = 3000;

TEST(AnyBytes, AreUtf8IfTheBookSaysSo) {
  forEachSeed(kCases, [](RandomInput input) {
    const std::string bytes = input.isOneIn(2) ? input.text(20) : input.bytes(20);
    EXPECT_EQ(isUtf8(bytes), test::slowlyDecoded(bytes).isWellFormed);
  });
}

TEST(AnyBytes, AreRepairedAsTheBookSays) {
  forEachSeed(kCases, [](RandomInput input) {
    const std::string bytes = input.bytes(40);
    EXPECT_EQ(repairedUtf8(bytes), test::encoded(test::slowlyDecoded(bytes).codePoints));
  });
}

TEST(AnyBytes, AreRepairedOnce) {
  forEachSeed(kCases, [](RandomInput input) {
    const std::string repaired = repairedUtf8(input.bytes(40));
    EXPECT_TRUE(isUtf8(repaired));
    EXPECT_EQ(repairedUtf8(repaired), repaired);
  });
}

TEST(AnyText, LosesTheBlanksAtItsEnds) {
  forEachSeed(kCases, [](RandomInput input) {
    const std::string text = input.text(12);
    EXPECT_EQ(trimmedBlanks(text), test::slowlyTrimmed(text));
  });
}

TEST(AnyText, IsCutBehindItsFirstCharacters) {
  forEachSeed(kCases, [](RandomInput input) {
    const std::string text = input.text(40);
    const std::size_t count = input.below(30);
    EXPECT_EQ(firstCharacters(text, count), test::slowlyCut(text, count)) << "to " << count;
  });
}

}  // namespace
}  // namespace pelmar
