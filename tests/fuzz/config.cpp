// The text of a configuration file, against a slow reading of its syntax.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "config/config_file.h"
#include "config/pelmar_config.h"
#include "platform/text.h"
#include "tests/fuzz/fuzzing.h"

namespace pelmar::fuzz {
namespace {

// A pair of CR and LF is one character, and no line end.
std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEnd = text[i] == '\n' && (i == 0 || text[i - 1] != '\r');
    if (isEnd) {
      lines.emplace_back();
    } else {
      lines.back() += text[i];
    }
  }
  return lines;
}

std::string trimmed(const std::string& text) { return std::string(trimmedBlanks(text)); }

std::string unquoted(std::string text) {
  text.erase(0, text.find_first_not_of('"'));
  return text.substr(0, text.find_last_not_of('"') + 1);
}

ConfigSections slowlyParsed(std::string_view text) {
  ConfigSections sections;
  std::string current;
  bool isInSection = false;
  for (const auto& whole : linesOf(text)) {
    const std::string line = trimmed(whole);
    if (line.empty() || line[0] == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      current = trimmed(line.substr(1, line.size() - 2));
      sections[current] = {};
      isInSection = true;
    } else if (isInSection && line.find('=') != std::string::npos) {
      const auto equals = line.find('=');
      sections[current][trimmed(line.substr(0, equals))] =
          unquoted(trimmed(line.substr(equals + 1)));
    }
  }
  return sections;
}

// The name of the section whose profile serves, or none.
std::string servingSection(const ConfigSections& sections) {
  for (const auto& name : PelmarConfig::preferredSections()) {
    const auto section = sections.find(name);
    if (section == sections.end()) continue;
    const auto hasText = [&](const char* key) {
      return section->second.contains(key) && !section->second.at(key).empty();
    };
    if (hasText("api_url") && hasText("api_key")) return name;
  }
  return {};
}

void checkLines(std::string_view text) {
  std::size_t last = 0;
  for (const ConfigLine& line : configLines(text)) {
    require(line.number > last, "lines are told in their order");
    last = line.number;
  }
  const auto feeds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  require(last <= feeds + 1, "a line has the number that an editor gives it");
}

void check(const std::string& text) {
  const auto resolution = PelmarConfig::profileInConfig(text, PelmarConfig::preferredSections());
  if (!isUtf8(text)) {
    require(!resolution.profile, "only UTF-8 is read");
    return;
  }
  checkLines(text);
  const auto sections = parseConfig(text);
  require(sections == slowlyParsed(text), "the sections are those of the slow reading");
  const std::string serving = servingSection(sections);
  require(resolution.profile.has_value() == !serving.empty(), "a whole section serves");
  if (!resolution.profile) return;
  require(resolution.profile->name == serving, "the first whole section serves");
  require(resolution.profile->apiKey == sections.at(serving).at("api_key"), "its key is used");
}

}  // namespace
}  // namespace pelmar::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  pelmar::fuzz::check(std::string(pelmar::fuzz::textOf(data, size)));
  return 0;
}
