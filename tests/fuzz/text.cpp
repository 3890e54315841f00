// Bytes as text: well-formed or repaired, trimmed, cut. The first byte of an input is the number of
// characters it is cut to.

#include <string>

#include "platform/text.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/slow_text.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using pelmar::fuzz::require;
  if (size == 0) return 0;
  const std::size_t count = data[0];
  const auto bytes = pelmar::fuzz::textOf(data + 1, size - 1);
  const auto decoded = pelmar::test::slowlyDecoded(bytes);
  const std::string text = pelmar::repairedUtf8(bytes);
  require(pelmar::isUtf8(bytes) == decoded.isWellFormed, "UTF-8 is known as such");
  require(text == pelmar::test::encoded(decoded.codePoints), "each ill-formed subpart is replaced");
  require(pelmar::isUtf8(text) && pelmar::repairedUtf8(text) == text, "what was repaired is whole");
  require(pelmar::trimmedBlanks(text) == pelmar::test::slowlyTrimmed(text),
          "all blanks at both ends are trimmed, and nothing else");
  require(pelmar::firstCharacters(text, count) == pelmar::test::slowlyCut(text, count),
          "text is cut behind its first characters");
  pelmar::trimmedBlanks(bytes);
  return 0;
}
