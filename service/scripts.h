#pragma once

// What the service does instead of its work when a test wants it to fail: an answer or a
// failure for the requests of a path, for a number of times or for ever.
// ScriptBook is not locked.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/http_server.h"

namespace pelmar::service {

struct Script {
  bool isBodyRead = true;
  bool isProcessed = false;  // false: nothing is stored but the request itself
  HttpReply reply = {};      // of a processed request only the ending and the delay count
};

// Answers `status` and `body`.
Script answerWith(int status, std::string body = "{}");
// Answers 3xx with a Location header.
Script redirectTo(std::string location, int status = 307);
// Processes and stores as usual, and answers `delay` later.
Script answerLate(std::chrono::milliseconds delay);
// Answers 200 and half of `body`, and closes.
Script answerHalf(std::string body = R"({"run_id":"cut","workflow_id":"cut"})");
// Sends these bytes in place of an HTTP answer, and closes.
Script answerRaw(std::string bytes);
// Closes once the headers are read and the body is not.
Script dropBeforeBody();
// Closes once the whole request is read.
Script dropAfterRequest();
// Processes and stores as usual, and closes without an answer.
Script storeAndDrop();
// Holds the connection open until the service stops.
Script neverAnswer();

class ScriptBook {
 public:
  // `pattern` is a path without the query, or the begin of one followed by "*". `times` none
  // means for ever. Of several scripts for a path the oldest with times left comes first.
  void add(std::string pattern, Script script, std::optional<int> times);
  void clear() { entries_.clear(); }

  // The script for this request, counted as used; none for an ordinary one.
  std::optional<Script> take(std::string_view path);

 private:
  struct Entry {
    std::string pattern;
    Script script;
    std::optional<int> timesLeft;
  };

  std::vector<Entry> entries_;
};

}  // namespace pelmar::service
