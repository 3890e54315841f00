#include "tests/faults/recording.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/faults/next.h"

namespace pelmar::test {
namespace {

int descriptor() {
  static const int value = [] {
    const char* text = std::getenv("PELMAR_RECORD");  // NOLINT(concurrency-mt-unsafe)
    return text == nullptr ? -1 : std::atoi(text);
  }();
  return value;
}

std::string lineOf(std::initializer_list<std::string_view> words) {
  std::string line;
  for (const auto word : words) {
    if (!line.empty()) line += '\t';
    line += word;
  }
  return line;
}

void writeLine(std::string line) {
  line += '\n';
  const char* rest = line.data();
  std::size_t length = line.size();
  while (length > 0) {
    const ssize_t count = nextFunction(&::write, "write")(descriptor(), rest, length);
    if (count <= 0) std::abort();
    rest += count;
    length -= static_cast<std::size_t>(count);
  }
}

}  // namespace

void record(std::initializer_list<std::string_view> words) {
  if (descriptor() >= 0) writeLine(lineOf(words));
}

void recordBytes(std::initializer_list<std::string_view> words, const void* bytes,
                 std::size_t length) {
  if (descriptor() < 0) return;
  std::string line = lineOf(words) + '\t';
  constexpr const char* kDigits = "0123456789abcdef";
  const auto* byte = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < length; ++i) {
    line += kDigits[byte[i] >> 4];
    line += kDigits[byte[i] & 15];
  }
  writeLine(std::move(line));
}

}  // namespace pelmar::test
