// The summary of a tool result's content, against a slow reading of its rules. An input is the JSON
// text of the content, or else a string as it is; its size decides the length of the cut.

#include <string>

#include "audit/lenient_values.h"
#include "platform/json.h"
#include "platform/text.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/support/slow_text.h"

namespace pelmar::fuzz {
namespace {

void check(std::string_view input) {
  const auto parsed = parseJson(input);
  const json value = parsed ? *parsed : json(repairedUtf8(input));
  const std::string whole = test::textOfContent(value);
  const std::size_t few = input.size() % 8;
  for (const std::size_t length : {few, std::size_t{500}}) {
    require(summarizeContent(&value, length) == test::slowlyCut(whole, length),
            "a summary is the first characters of the text");
  }
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(pelmar::fuzz::textOf(data, size));
  return 0;
}
