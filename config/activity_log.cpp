#include "config/activity_log.h"

#include <unistd.h>

#include <chrono>

#include "platform/dates.h"
#include "platform/files.h"
#include "platform/json.h"
#include "platform/locations.h"

namespace pelmar::ActivityLog {

void record(const std::string& method, const std::string& url, int status, std::int64_t ms,
            std::int64_t bytes, const std::string& summary,
            const std::optional<std::string>& error) {
  json entry = {{"ts", iso8601Milliseconds(std::chrono::system_clock::now())},
                {"daemon", "cowork-watcher"},
                {"pid", ::getpid()},
                {"method", method},
                {"url", url},
                {"status", status},
                {"ms", ms},
                {"bytes", bytes}};
  if (!summary.empty()) entry["summary"] = summary;
  if (!error.value_or("").empty()) entry["error"] = *error;
  const std::string line = compactJsonEscapingSlashes(entry);

  const std::string folder = locations::homeFolder() + "/.pelmar/logs";
  const std::string path = folder + "/cowork-watcher.activity.jsonl";
  if (appendLine(path, line)) return;
  createFolders(folder);
  replaceFile(path, path + ".tmp", line + '\n');
}

}  // namespace pelmar::ActivityLog
