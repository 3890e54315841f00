#pragma once

// What the activity log says about the agent's requests. Reads its newest part only: the log is
// never trimmed.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/dates.h"

namespace pelmar::status {

struct Request {
  std::string time;  // as logged, in UTC
  std::string path;  // of the URL, without its host and query
  std::int64_t status = 0;
  std::int64_t milliseconds = 0;
  std::string error{};

  bool isSuccess() const { return error.empty() && status >= 200 && status <= 299; }
};

// Answers of status 400 to 499 to requests for one path: not tried again within the pass.
struct Refusals {
  std::size_t count = 0;
  std::int64_t status = 0;  // of the latest
  std::string since{};      // the first
};

struct Activity {
  std::string problem{};  // why the log cannot be read; empty also when there is none yet
  bool isWhole = true;    // false: older lines were not looked at
  std::optional<Request> last{};
  std::optional<Request> lastSuccess{};
  std::optional<Request> lastFailure{};
  std::optional<Request> slowestOfDay{};
  std::map<std::int64_t, std::size_t> lastHour{};  // requests by status; 0 without an answer
  std::map<std::int64_t, std::size_t> lastDay{};
  std::map<std::string, Refusals> refusedLastHour{};  // by path
  std::size_t failuresLastHour = 0;
};

Activity readActivity(TimePoint now);

// `text` is a part of the log; lines that are no records are passed over.
Activity activityIn(std::string_view text, TimePoint now);

}  // namespace pelmar::status
