#pragma once

// Unicode text as the platform counts it (ICU): UTF-8, blanks, user-perceived characters.

#include <cstddef>
#include <string>
#include <string_view>

namespace pelmar {

// Whether `bytes` is well-formed UTF-8 (Unicode, table 3-7).
bool isUtf8(std::string_view bytes);

// `bytes` with each maximal ill-formed subpart replaced by one U+FFFD (Unicode, section 3.9).
std::string repairedUtf8(std::string_view bytes);

// `text` without blanks (tab and the category Zs, not line breaks) at both ends. `text` is UTF-8;
// the answer points into it.
std::string_view trimmedBlanks(std::string_view text);

// The first `count` extended grapheme clusters of `text` (UAX #29; a CR LF pair is one).
// `text` is UTF-8; the answer points into it.
std::string_view firstCharacters(std::string_view text, std::size_t count);

}  // namespace pelmar
