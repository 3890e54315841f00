#pragma once

// The syntax of ~/.pelmar/config: sections of key = value lines. It knows neither which sections
// nor which keys matter.

#include <map>
#include <string>
#include <string_view>

namespace pelmar {

using ConfigSection = std::map<std::string, std::string>;
using ConfigSections = std::map<std::string, ConfigSection>;

// The sections of `text`, which is UTF-8. Lines end at a line feed that no carriage return precedes
// (the pair is one user-perceived character), so a file with CR LF line ends is a single line. A
// repeated section keeps only the keys behind its last header; keys above the first header and
// lines without "=" are passed over.
ConfigSections parseConfig(std::string_view text);

}  // namespace pelmar
