#pragma once

// Made-up input from a seed, odd on purpose: texts whose characters are several code points, values
// of other types than expected, keys that are missing. The same seed gives the same input.

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

namespace pelmar::test {

class RandomInput {
 public:
  explicit RandomInput(std::uint64_t seed) : random_(seed) {}

  // Below `end`, which is above 0.
  std::size_t below(std::size_t end) { return random_() % end; }
  bool isOneIn(std::size_t count) { return below(count) == 0; }

  // Up to `most` bytes, most of them parts of UTF-8.
  std::string bytes(std::size_t most);

  // Well-formed UTF-8 of up to `most` pieces: letters, marks, line ends, emoji.
  std::string text(std::size_t most);

  // Any JSON value, nested up to `depth` levels.
  nlohmann::json value(int depth);

  // What stands in a tool result: text, blocks or any value.
  nlohmann::json content();

  // An object like a transcript's line. Has a timestamp, and no count beyond 64 bits.
  nlohmann::json line();

  // Lines of every fate, and perhaps the begin of one more.
  std::string transcript(std::size_t lines);

  // `text` in up to `most` + 1 pieces, cut at any byte.
  std::vector<std::string> pieces(const std::string& text, std::size_t most);

 private:
  template <typename Choices>
  auto oneOf(const Choices& choices) {
    return *(std::begin(choices) + static_cast<std::ptrdiff_t>(below(std::size(choices))));
  }
  nlohmann::json message();
  nlohmann::json block();
  nlohmann::json usage();
  void spoil(nlohmann::json& object);

  std::mt19937_64 random_;
};

}  // namespace pelmar::test
