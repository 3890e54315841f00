#include "config/config_file.h"

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

}  // namespace

ConfigSections parseConfig(std::string_view text) {
  ConfigSections sections;
  ConfigSection* current = nullptr;
  while (!text.empty()) {
    const std::string_view line = trimmedBlanks(takeLine(text));
    if (line.empty() || line.starts_with('#')) continue;
    if (line.starts_with('[') && line.ends_with(']')) {
      const auto name = trimmedBlanks(line.substr(1, line.size() - 2));
      current = &sections[std::string(name)];
      current->clear();
      continue;
    }
    const auto equals = line.find('=');
    if (current == nullptr || equals == line.npos) continue;
    const auto key = trimmedBlanks(line.substr(0, equals));
    const auto value = withoutQuotes(trimmedBlanks(line.substr(equals + 1)));
    (*current)[std::string(key)] = std::string(value);
  }
  return sections;
}

}  // namespace pelmar
