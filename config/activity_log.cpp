#include "config/activity_log.h"

#include <unistd.h>

#include <chrono>

#include "platform/dates.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/locations.h"

namespace pelmar::ActivityLog {

std::string path() {
  return locations::homeFolder() + "/.pelmar/logs/cowork-watcher.activity.jsonl";
}

void record(const std::string& method, const std::string& url, int status, std::int64_t ms,
            std::int64_t bytes, const std::string& summary,
            const std::optional<std::string>& error) {
  json entry;  // one by one: a list of all would be copied, and this is done for every request
  entry["ts"] = iso8601Milliseconds(std::chrono::system_clock::now());
  entry["daemon"] = "cowork-watcher";
  entry["pid"] = ::getpid();
  entry["method"] = method;
  entry["url"] = url;
  entry["status"] = status;
  entry["ms"] = ms;
  entry["bytes"] = bytes;
  if (!summary.empty()) entry["summary"] = summary;
  if (!error.value_or("").empty()) entry["error"] = *error;
  const std::string line = compactJsonEscapingSlashes(entry);

  const std::string file = path();
  if (appendLine(file, line)) return;
  createFolders(file.substr(0, file.rfind('/')));
  replaceFile(file, file + ".tmp", line + '\n');
}

}  // namespace pelmar::ActivityLog
