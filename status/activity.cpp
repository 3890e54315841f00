#include "status/activity.h"

#include <algorithm>
#include <cerrno>

#include "config/activity_log.h"
#include "platform/files.h"
#include "platform/json.h"

namespace pelmar::status {
namespace {

constexpr std::int64_t kMostBytes = 8 * 1024 * 1024;

std::string pathOf(const std::string& url) {
  const auto scheme = url.find("://");
  const auto begin = url.find('/', scheme == url.npos ? 0 : scheme + 3);
  return begin == url.npos ? "/" : url.substr(begin, url.find_first_of("?#", begin) - begin);
}

std::int64_t integerAt(const json& record, const char* key) {
  const auto found = record.find(key);
  return found == record.end() ? 0 : exactInteger(*found).value_or(0);
}

std::optional<Request> requestIn(std::string_view line) {
  const auto record = parseJsonObject(line);
  if (!record || stringAt(*record, "ts") == nullptr) return std::nullopt;
  return Request{.time = textAt(*record, "ts"),
                 .path = pathOf(textAt(*record, "url")),
                 .status = integerAt(*record, "status"),
                 .milliseconds = integerAt(*record, "ms"),
                 .error = textAt(*record, "error")};
}

void count(const Request& request, const std::string& hourAgo, const std::string& dayAgo,
           Activity& activity) {
  activity.last = request;
  (request.isSuccess() ? activity.lastSuccess : activity.lastFailure) = request;
  // The times are of one form, so their order is that of their texts.
  if (request.time < dayAgo) return;
  ++activity.lastDay[request.status];
  if (!activity.slowestOfDay || request.milliseconds > activity.slowestOfDay->milliseconds) {
    activity.slowestOfDay = request;
  }
  if (request.time < hourAgo) return;
  ++activity.lastHour[request.status];
  if (request.isSuccess()) return;
  ++activity.failuresLastHour;
  if (request.status < 400 || request.status > 499) return;
  Refusals& refusals = activity.refusedLastHour[request.path];
  if (refusals.count++ == 0) refusals.since = request.time;
  refusals.status = request.status;
}

}  // namespace

Activity activityIn(std::string_view text, TimePoint now) {
  Activity activity;
  const std::string hourAgo = iso8601Milliseconds(now - std::chrono::hours(1));
  const std::string dayAgo = iso8601Milliseconds(now - std::chrono::hours(24));
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (const auto request = requestIn(line)) count(*request, hourAgo, dayAgo, activity);
  }
  return activity;
}

Activity readActivity(TimePoint now) {
  const std::string path = ActivityLog::path();
  const int error = openError(path);
  if (error == ENOENT) return {};
  const std::int64_t size = sizeOf(path).value_or(0);
  const std::int64_t start = std::max<std::int64_t>(0, size - kMostBytes);
  const RangeRead read = readRange(path, start, size - start);
  if (!read.bytes) return {.problem = unreadable(path)};
  Activity activity = activityIn(*read.bytes, now);
  activity.isWhole = start == 0;
  return activity;
}

}  // namespace pelmar::status
