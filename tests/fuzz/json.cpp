// JSON texts, against nlohmann/json alone: the reader that is used may be faster, not different.

#include "platform/json.h"

#include <algorithm>
#include <string>

#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

int levelsOf(const json& value) {
  if (!value.is_structured()) return 0;
  int deepest = 0;
  for (const json& element : value) deepest = std::max(deepest, levelsOf(element));
  return deepest + 1;
}

// Also where numbers are equal, but not of the same kind.
bool isSame(const json& one, const json& other) {
  return one == other && one.dump() == other.dump();
}

void check(std::string_view text) {
  constexpr int kLevels = 16;
  json expected = json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  const bool isNone = expected.is_discarded() || text.find('\0') != text.npos;
  const auto value = parseJson(text);
  if (isNone || levelsOf(expected) > kMaxJsonDepth) {
    require(!value, "what is no JSON is not read");
  } else {
    require(value && isSame(*value, expected), "a value is read as it stands");
  }
  require(parseJson(text, kLevels).has_value() == (!isNone && levelsOf(expected) <= kLevels),
          "the depth is as allowed");
  require(textInJsonObject(text, "key") == (value ? textAt(*value, "key") : std::string()),
          "a string is found without the value as with it");
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(pelmar::fuzz::textOf(data, size));
  return 0;
}
