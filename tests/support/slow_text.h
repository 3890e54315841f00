#pragma once

// Text by the book, character for character and as slow as it likes: what the product is held
// against.

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace pelmar::test {

// The code points of `bytes`, one U+FFFD for each maximal subpart that is ill-formed, by the rows
// of Unicode's table 3-7; `isWellFormed` tells whether there was none.
struct DecodedText {
  std::u32string codePoints{};
  bool isWellFormed = true;
};
DecodedText slowlyDecoded(std::string_view bytes);

std::string encoded(std::u32string_view codePoints);

// `text` without tabs and the characters of the category Zs at both ends.
std::string slowlyTrimmed(std::string_view text);

// The user-perceived characters of `text`, as ICU finds them in UTF-16.
std::vector<std::string> charactersOf(std::string_view text);

// The first `count` of them.
std::string slowlyCut(std::string_view text, std::size_t count);

// The text of a tool result's content, before it is cut.
std::string textOfContent(const nlohmann::json& content);

}  // namespace pelmar::test
