#include "tests/support/slow_text.h"

#include <unicode/brkiter.h>
#include <unicode/unistr.h>

#include <array>
#include <memory>

namespace pelmar::test {
namespace {

struct Range {
  unsigned char first = 0x80;
  unsigned char last = 0xBF;
};

// A row of table 3-7: a first byte and what may follow it.
struct Row {
  Range first;
  std::vector<Range> following;
};

const std::vector<Row>& rows() {
  static const std::vector<Row> rows = {
      {{0x00, 0x7F}, {}},
      {{0xC2, 0xDF}, {{}}},
      {{0xE0, 0xE0}, {{0xA0, 0xBF}, {}}},
      {{0xE1, 0xEC}, {{}, {}}},
      {{0xED, 0xED}, {{0x80, 0x9F}, {}}},
      {{0xEE, 0xEF}, {{}, {}}},
      {{0xF0, 0xF0}, {{0x90, 0xBF}, {}, {}}},
      {{0xF1, 0xF3}, {{}, {}, {}}},
      {{0xF4, 0xF4}, {{0x80, 0x8F}, {}, {}}},
  };
  return rows;
}

bool isIn(const Range& range, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value >= range.first && value <= range.last;
}

// How much of `bytes`, which is not empty, one row accepts, and whether it is a whole character.
struct Piece {
  std::size_t length = 1;
  bool isWhole = false;
};

Piece firstPiece(std::string_view bytes) {
  for (const Row& row : rows()) {
    if (!isIn(row.first, bytes[0])) continue;
    std::size_t length = 1;
    for (const Range& range : row.following) {
      if (length >= bytes.size() || !isIn(range, bytes[length])) return {.length = length};
      ++length;
    }
    return {.length = length, .isWhole = true};
  }
  return {};
}

char32_t codePointOf(std::string_view character) {
  constexpr std::array<unsigned, 5> kMasks = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t codePoint = static_cast<unsigned char>(character[0]) & kMasks[character.size()];
  for (const char byte : character.substr(1)) {
    codePoint = codePoint * 64 + (static_cast<unsigned char>(byte) & 0x3FU);
  }
  return codePoint;
}

bool isBlank(char32_t c) {
  return c == '\t' || c == ' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x202F || c == 0x205F || c == 0x3000;
}

}  // namespace

DecodedText slowlyDecoded(std::string_view bytes) {
  DecodedText decoded;
  while (!bytes.empty()) {
    const auto [length, isWhole] = firstPiece(bytes);
    decoded.codePoints += isWhole ? codePointOf(bytes.substr(0, length)) : U'\uFFFD';
    decoded.isWellFormed &= isWhole;
    bytes.remove_prefix(length);
  }
  return decoded;
}

std::string encoded(std::u32string_view codePoints) {
  std::string text;
  for (const char32_t codePoint : codePoints) {
    icu::UnicodeString(static_cast<UChar32>(codePoint)).toUTF8String(text);
  }
  return text;
}

std::string slowlyTrimmed(std::string_view text) {
  std::u32string codePoints = slowlyDecoded(text).codePoints;
  while (!codePoints.empty() && isBlank(codePoints.back())) codePoints.pop_back();
  while (!codePoints.empty() && isBlank(codePoints.front())) codePoints.erase(0, 1);
  return encoded(codePoints);
}

std::vector<std::string> charactersOf(std::string_view text) {
  const auto wide = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::BreakIterator> iterator(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  iterator->setText(wide);
  std::vector<std::string> characters;
  std::int32_t begin = 0;
  for (auto end = iterator->next(); end != icu::BreakIterator::DONE; end = iterator->next()) {
    characters.emplace_back();
    wide.tempSubStringBetween(begin, end).toUTF8String(characters.back());
    begin = end;
  }
  return characters;
}

std::string slowlyCut(std::string_view text, std::size_t count) {
  std::string cut;
  for (const auto& character : charactersOf(text)) {
    if (count-- == 0) break;
    cut += character;
  }
  return cut;
}

std::string textOfContent(const nlohmann::json& content) {
  if (content.is_null()) return {};
  if (content.is_string()) return content.get<std::string>();
  if (!content.is_array()) return content.dump();
  std::string joined;
  const char* between = "";
  for (const auto& block : content) {
    if (!block.is_object()) return content.dump();
    for (const char* key : {"text", "content"}) {
      if (!block.contains(key) || !block[key].is_string()) continue;
      joined += between;
      joined += block[key].get<std::string>();
      between = "\n";
      break;
    }
  }
  return joined;
}

}  // namespace pelmar::test
