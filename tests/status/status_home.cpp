#include "tests/status/status_home.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "platform/dates.h"
#include "platform/json.h"

namespace pelmar::test {

void StatusHome::setProcesses(const std::string& listing) const {
  writeFile(path() + "/listing", listing);
  writeFile(path() + "/bin/ps", "#!/bin/sh\ncat '" + path() + "/listing'\n");
  makeExecutable(path() + "/bin/ps");
}

void StatusHome::setAgentRunning() const {
  setProcesses(" 77 01:00 /opt/PelmarCoworkWatcher --poll 2\n");
}

void StatusHome::setConfig(const std::string& text) const {
  writeFile(home() + "/.pelmar/config", text);
}

void StatusHome::setGoodConfig() const {
  setConfig(
      "[claude-cowork]\napi_url = https://observe.example\n"
      "api_key = 0123456789abcdef\nagent_slug = garden\n");
}

void StatusHome::setCursor(const std::string& path, const std::string& values) const {
  writeFile(cursor(), json{{path, json::parse(values)}}.dump());
}

void StatusHome::addRequest(int minutesAgo, const std::string& path, int status,
                            const std::string& error) const {
  const auto time = std::chrono::system_clock::now() - std::chrono::minutes(minutesAgo);
  json record = {{"ts", iso8601Milliseconds(time)},
                 {"url", "https://observe.example" + path},
                 {"status", status},
                 {"ms", 7}};
  if (!error.empty()) record["error"] = error;
  appendToFile(activityLog(), record.dump() + "\n");
}

std::vector<std::string> StatusHome::everything() const {
  std::vector<std::string> all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path())) {
    struct stat status {};
    ::lstat(entry.path().c_str(), &status);
    all.push_back(entry.path().string() + ' ' + std::to_string(status.st_size) + ' ' +
                  std::to_string(status.st_mtime) + ' ' + std::to_string(status.st_mode));
  }
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace pelmar::test
