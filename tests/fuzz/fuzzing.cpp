#include "tests/fuzz/fuzzing.h"

#include <cstdio>
#include <cstdlib>

#include "platform/fatal.h"
#include "platform/log.h"

// In place of those of platform/: the linker takes these and leaves the library's where they are.
namespace pelmar {

void fatal(const char* reason) {
  const std::string_view text = reason;
  if (text == "a stored offset is negative") throw fuzz::NegativeOffset();
  if (text == "a count in a transcript lies beyond the 64-bit integer range") {
    throw fuzz::EndlessCount();
  }
  fuzz::require(false, reason);
  std::abort();
}

// Thousands of inputs a second leave no room for a line each.
void Logger::message(std::string_view /*text*/) const { static_cast<void>(category_); }
void Logger::error(std::string_view /*text*/) const {}
void Logger::debug(std::string_view /*text*/) const {}

}  // namespace pelmar

namespace pelmar::fuzz {

void require(bool holds, const char* law) {
  if (holds) return;
  std::fprintf(stderr, "\nThis does not hold: %s\n", law);
  std::abort();
}

std::vector<std::string_view> partsOf(std::string_view input) {
  constexpr std::string_view kBetween = "----\n";
  std::vector<std::string_view> parts;
  for (auto end = input.find(kBetween); end != input.npos; end = input.find(kBetween)) {
    parts.push_back(input.substr(0, end));
    input.remove_prefix(end + kBetween.size());
  }
  parts.push_back(input);
  return parts;
}

}  // namespace pelmar::fuzz
