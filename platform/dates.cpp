#include "platform/dates.h"

#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cstdio>
#include <ctime>

namespace pelmar {
namespace {

std::string formattedDate(TimePoint time) {
  UErrorCode status = U_ZERO_ERROR;
  icu::SimpleDateFormat format(icu::UnicodeString("yyyy-MM-dd"), status);
  if (U_FAILURE(status)) return iso8601Milliseconds(time).substr(0, 10);  // no locale data here
  format.adoptTimeZone(icu::TimeZone::createTimeZone("UTC"));
  const auto sinceEpoch =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  icu::UnicodeString text;
  format.format(static_cast<UDate>(sinceEpoch.count()), text);
  std::string utf8;
  return text.toUTF8String(utf8);
}

}  // namespace

std::string iso8601Milliseconds(TimePoint time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time) - seconds;
  const std::time_t clock = std::chrono::system_clock::to_time_t(seconds);
  std::tm utc{};
  ::gmtime_r(&clock, &utc);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text + length, sizeof text - length, ".%03dZ",
                static_cast<int>(milliseconds.count()));
  return text;
}

std::string utcDate(TimePoint time) {
  // Asked for every event, while a formatter costs more than the rest of the event:
  // the answer changes only with the UTC day.
  static std::chrono::sys_days cachedDay = std::chrono::sys_days::max();
  static std::string cachedDate;
  const auto day = std::chrono::floor<std::chrono::days>(time);
  if (day != cachedDay) {
    cachedDate = formattedDate(time);
    cachedDay = day;
  }
  return cachedDate;
}

}  // namespace pelmar
