#include "status/config_findings.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>

#include "config/config_file.h"
#include "config/pelmar_config.h"
#include "platform/text.h"
#include "platform/url.h"

namespace pelmar::status {
namespace {

constexpr std::array<std::string_view, 4> kKeys = {"api_url", "api_key", "agent_slug", "tenant"};

std::string quoted(std::string_view text) {
  std::string quotedText = "\"";
  quotedText += text;
  quotedText += '"';
  return quotedText;
}

std::string lowered(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

bool isPreferred(const std::string& name) {
  const auto& names = PelmarConfig::preferredSections();
  return std::find(names.begin(), names.end(), name) != names.end();
}

class Findings {
 public:
  void add(std::size_t line, std::string text) {
    list_.push_back({.line = line, .text = std::move(text)});
  }
  void note(std::size_t line, std::string text) {
    list_.push_back({.line = line, .text = std::move(text), .isNote = true});
  }

  std::vector<ConfigFinding> sorted() {
    std::stable_sort(list_.begin(), list_.end(),
                     [](const auto& a, const auto& b) { return a.line < b.line; });
    return std::move(list_);
  }

 private:
  std::vector<ConfigFinding> list_;
};

void lookAtKey(const ConfigLine& line, Findings& findings) {
  if (std::find(kKeys.begin(), kKeys.end(), line.name) != kKeys.end()) return;
  const std::string lower = lowered(line.name);
  const bool isOnlyCase = std::find(kKeys.begin(), kKeys.end(), lower) != kKeys.end();
  const std::string text = "the key " + quoted(line.name) + " is not read";
  if (isOnlyCase) {
    findings.add(line.number, text + ": write it as " + quoted(lower));
  } else {
    findings.note(line.number, text);
  }
}

void lookAtValue(const ConfigLine& line, Findings& findings) {
  const auto key = quoted(line.name);
  if (line.value.size() != line.rawValue.size()) {
    findings.note(line.number, "the double quotes around the value of " + key + " are dropped");
  } else if (line.value.starts_with('\'') || line.value.ends_with('\'')) {
    findings.add(line.number, "the single quotes are part of the value of " + key);
  }
  if (line.value.find(" #") != line.value.npos) {
    findings.add(line.number, "what follows # is part of the value of " + key +
                                  ": a comment needs a line of its own");
  }
  if (line.name == "api_url" && !line.value.empty() && !isHttpUrl(std::string(line.value))) {
    findings.add(line.number, "the value of \"api_url\" is no http or https URL");
  }
}

void lookAtSection(const std::string& name, const ConfigSection& section, std::size_t line,
                   Findings& findings) {
  const auto lacks = [&section](const char* key) {
    const auto found = section.find(key);
    return found == section.end() || found->second.empty();
  };
  const std::string header = "the section [" + name + "] ";
  if (!isPreferred(name)) {
    findings.note(line, header +
                            "is not used: the names are claude-cowork, claude-code, tandem "
                            "and default");
    return;
  }
  for (const char* key : {"api_url", "api_key"}) {
    if (lacks(key)) findings.add(line, header + "lacks " + quoted(key) + " and is passed over");
  }
  if (lacks("agent_slug")) {
    findings.add(line, header +
                           "has no \"agent_slug\": no daily run, no heartbeat, and a managed "
                           "enrollment comes before it");
  }
}

void lookAtLine(const ConfigLine& line, Findings& findings) {
  switch (line.kind) {
    case ConfigLine::Kind::withoutEquals:
      findings.add(line.number, "the line has no \"=\" and is ignored");
      break;
    case ConfigLine::Kind::outsideOfSections:
      findings.add(line.number, "the key " + quoted(line.name) +
                                    " stands above the first section and is ignored");
      break;
    case ConfigLine::Kind::entry:
      lookAtKey(line, findings);
      lookAtValue(line, findings);
      break;
    case ConfigLine::Kind::section:
      break;
  }
}

}  // namespace

std::vector<ConfigFinding> configFindings(const std::string& text) {
  if (!isUtf8(text)) return {{.text = "the file is not UTF-8 and is passed over"}};
  Findings findings;
  if (const auto pair = text.find("\r\n"); pair != text.npos) {
    const auto end = text.begin() + static_cast<std::string::difference_type>(pair);
    findings.add(static_cast<std::size_t>(std::count(text.begin(), end, '\n')) + 1,
                 "the line ends with CR LF and so does not end at all for the agent: save the file "
                 "with LF line ends");
    return findings.sorted();  // whatever else there is to say follows from that
  }
  const ConfigSections sections = parseConfig(text);
  std::map<std::string, std::size_t> headers;
  for (const ConfigLine& line : configLines(text)) {
    lookAtLine(line, findings);
    if (line.kind != ConfigLine::Kind::section) continue;
    const auto [header, isNew] = headers.try_emplace(std::string(line.name), line.number);
    if (!isNew) {
      findings.add(line.number, "the section [" + header->first + "] is repeated: what stands " +
                                    "behind its earlier header is dropped");
      header->second = line.number;
    }
  }
  for (const auto& [name, line] : headers) lookAtSection(name, sections.at(name), line, findings);
  return findings.sorted();
}

}  // namespace pelmar::status
