#include "config/config_file.h"

#include <algorithm>

#include "platform/text.h"

namespace pelmar {
namespace {

// The line that `rest` begins with, which is taken off it.
std::string_view takeLine(std::string_view& rest) {
  auto end = rest.find('\n');
  while (end != rest.npos && end > 0 && rest[end - 1] == '\r') end = rest.find('\n', end + 1);
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
  return line;
}

std::string_view withoutQuotes(std::string_view text) {
  while (text.starts_with('"')) text.remove_prefix(1);
  while (text.ends_with('"')) text.remove_suffix(1);
  return text;
}

ConfigLine entryOf(std::size_t number, std::string_view line, bool isInSection) {
  using Kind = ConfigLine::Kind;
  const auto equals = line.find('=');
  if (equals == line.npos) return {.number = number, .kind = Kind::withoutEquals};
  const auto value = trimmedBlanks(line.substr(equals + 1));
  return {.number = number,
          .kind = isInSection ? Kind::entry : Kind::outsideOfSections,
          .name = trimmedBlanks(line.substr(0, equals)),
          .value = withoutQuotes(value),
          .rawValue = value};
}

}  // namespace

std::vector<ConfigLine> configLines(std::string_view text) {
  std::vector<ConfigLine> lines;
  bool isInSection = false;
  std::size_t next = 1;
  while (!text.empty()) {
    const std::size_t number = next;
    const std::string_view whole = takeLine(text);
    next += 1 + static_cast<std::size_t>(std::count(whole.begin(), whole.end(), '\n'));
    const std::string_view line = trimmedBlanks(whole);
    if (line.empty() || line.starts_with('#')) continue;
    if (line.starts_with('[') && line.ends_with(']')) {
      isInSection = true;
      lines.push_back({.number = number,
                       .kind = ConfigLine::Kind::section,
                       .name = trimmedBlanks(line.substr(1, line.size() - 2))});
    } else {
      lines.push_back(entryOf(number, line, isInSection));
    }
  }
  return lines;
}

ConfigSections parseConfig(std::string_view text) {
  ConfigSections sections;
  ConfigSection* current = nullptr;
  for (const ConfigLine& line : configLines(text)) {
    if (line.kind == ConfigLine::Kind::section) {
      current = &sections[std::string(line.name)];
      current->clear();
    } else if (line.kind == ConfigLine::Kind::entry) {
      (*current)[std::string(line.name)] = std::string(line.value);
    }
  }
  return sections;
}

}  // namespace pelmar
