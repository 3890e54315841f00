#include "platform/text.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <memory>

namespace pelmar {
namespace {

bool isBlank(UChar32 c) { return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR; }

// Whether `text` is ASCII without CR, so that every byte is one user-perceived character.
bool isOneCharacterAByte(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80 && c != '\r'; });
}

}  // namespace

bool isUtf8(std::string_view bytes) {
  const auto* text = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto length = static_cast<std::int64_t>(bytes.size());
  std::int64_t i = 0;
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(text, i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string repairedUtf8(std::string_view bytes) {
  std::string repaired;
  repaired.reserve(bytes.size());
  const auto* text = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto length = static_cast<std::int64_t>(bytes.size());
  std::int64_t i = 0;
  while (i < length) {
    const auto start = i;
    UChar32 c = 0;
    U8_NEXT(text, i, length, c);
    if (c < 0) {
      repaired += "\xEF\xBF\xBD";
    } else {
      repaired.append(bytes, static_cast<std::size_t>(start), static_cast<std::size_t>(i - start));
    }
  }
  return repaired;
}

std::string_view trimmedBlanks(std::string_view text) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  std::int64_t begin = 0;
  auto end = static_cast<std::int64_t>(text.size());
  while (begin < end) {
    auto next = begin;
    UChar32 c = 0;
    U8_NEXT(bytes, next, end, c);
    if (!isBlank(c)) break;
    begin = next;
  }
  while (end > begin) {
    auto last = end - 1;
    while (last > begin && U8_IS_TRAIL(bytes[last])) --last;
    auto next = last;
    UChar32 c = 0;
    U8_NEXT(bytes, next, end, c);
    if (!isBlank(c)) break;
    end = last;
  }
  return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  if (text.size() <= count) return text;
  // The byte behind the cut belongs to the test: it might extend the last character.
  if (isOneCharacterAByte(text.substr(0, count + 1))) return text.substr(0, count);

  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  UText* view =
      utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status);
  std::size_t end = count;  // without ICU's rules, which come with it: never more than asked for
  while (end > 0 && U8_IS_TRAIL(static_cast<std::uint8_t>(text[end]))) --end;
  if (U_SUCCESS(status)) {
    characters->setText(view, status);
    for (std::size_t i = 0; i < count; ++i) {
      if (characters->next() == icu::BreakIterator::DONE) break;
    }
    if (U_SUCCESS(status)) end = static_cast<std::size_t>(characters->current());
  }
  utext_close(view);
  return text.substr(0, end);
}

}  // namespace pelmar
