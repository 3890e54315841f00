#pragma once

// The syntax of ~/.pelmar/config: sections of key = value lines. It knows neither which sections
// nor which keys matter.

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace pelmar {

using ConfigSection = std::map<std::string, std::string>;
using ConfigSections = std::map<std::string, ConfigSection>;

// What one line of a config file is to the parser.
struct ConfigLine {
  enum class Kind { section, entry, outsideOfSections, withoutEquals };
  std::size_t number;  // of the line, from 1, as an editor counts
  Kind kind;
  std::string_view name{};      // of the section, or the key; empty otherwise
  std::string_view value{};     // of an entry, without its quotes
  std::string_view rawValue{};  // of an entry, with them
};

// The lines of `text` that are neither blank nor a comment, as parseConfig takes them. They point
// into `text`.
std::vector<ConfigLine> configLines(std::string_view text);

// The sections of `text`, which is UTF-8. Lines end at a line feed that no carriage return precedes
// (the pair is one user-perceived character), so a file with CR LF line ends is a single line. A
// repeated section keeps only the keys behind its last header; keys above the first header and
// lines without "=" are passed over.
ConfigSections parseConfig(std::string_view text);

}  // namespace pelmar
