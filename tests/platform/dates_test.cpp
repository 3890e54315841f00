#include "platform/dates.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

namespace pelmar {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

TimePoint at(long long milli) { return TimePoint(milliseconds(milli)); }

TEST(Iso8601Milliseconds, WritesUtcWithThreeDigitsOfAFraction) {
  EXPECT_EQ(iso8601Milliseconds(at(0)), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(iso8601Milliseconds(at(1772600767089)), "2026-03-04T05:06:07.089Z");
  EXPECT_EQ(iso8601Milliseconds(at(1772600767000)), "2026-03-04T05:06:07.000Z");
  EXPECT_EQ(iso8601Milliseconds(at(1772600767999)), "2026-03-04T05:06:07.999Z");
  EXPECT_EQ(iso8601Milliseconds(at(1772600768000)), "2026-03-04T05:06:08.000Z");
  EXPECT_EQ(iso8601Milliseconds(at(1709164800000)), "2024-02-29T00:00:00.000Z");
}

TEST(Iso8601Milliseconds, DropsWhatIsFinerThanAMillisecond) {
  const TimePoint second(seconds(1772600767));
  EXPECT_EQ(iso8601Milliseconds(second + microseconds(999)), "2026-03-04T05:06:07.000Z");
  EXPECT_EQ(iso8601Milliseconds(second + microseconds(999999)), "2026-03-04T05:06:07.999Z");
}

TEST(Iso8601Milliseconds, CountsForwardsBefore1970Too) {
  EXPECT_EQ(iso8601Milliseconds(at(-1)), "1969-12-31T23:59:59.999Z");
  EXPECT_EQ(iso8601Milliseconds(at(-1000)), "1969-12-31T23:59:59.000Z");
  EXPECT_EQ(iso8601Milliseconds(at(-1001)), "1969-12-31T23:59:58.999Z");
}

TEST(Iso8601Milliseconds, IsNotMovedByTheTimeZone) {
  ::setenv("TZ", "Asia/Tokyo", 1);
  ::tzset();
  EXPECT_EQ(iso8601Milliseconds(at(1772600767089)), "2026-03-04T05:06:07.089Z");
  ::unsetenv("TZ");
  ::tzset();
}

// The locale is the process's own, so each date is asked for in a process that is started for it.
class UtcDate : public testing::Test {
 protected:
  UtcDate() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  [[noreturn]] static void print(const char* locale, const char* zone,
                                 std::initializer_list<TimePoint> times) {
    ::setenv("LC_ALL", locale, 1);
    ::setenv("TZ", zone, 1);
    for (const auto time : times) std::cerr << utcDate(time) << '.';
    std::exit(0);
  }
};

constexpr long long kMidnight = 1772582400000;  // 2026-03-04T00:00:00Z

TEST_F(UtcDate, ChangesAtMidnightUtc) {
  EXPECT_EXIT(print("en_US.UTF-8", "UTC",
                    {at(kMidnight - 1), at(kMidnight), at(kMidnight + 86399999),
                     at(kMidnight + 86400000), at(kMidnight - 1)}),
              testing::ExitedWithCode(0),
              "^2026-03-03\\.2026-03-04\\.2026-03-04\\.2026-03-05\\.2026-03-03\\.$");
}

TEST_F(UtcDate, IsNotMovedByTheTimeZone) {
  for (const auto* zone : {"Asia/Tokyo", "America/Los_Angeles"}) {
    EXPECT_EXIT(print("en_US.UTF-8", zone, {at(kMidnight - 1), at(kMidnight)}),
                testing::ExitedWithCode(0), "^2026-03-03\\.2026-03-04\\.$");
  }
}

TEST_F(UtcDate, TakesTheYearOfTheCalendarAndNotOfTheWeek) {
  EXPECT_EXIT(print("en_US.UTF-8", "UTC", {at(1767139200000), at(-1), at(0)}),
              testing::ExitedWithCode(0), "^2025-12-31\\.1969-12-31\\.1970-01-01\\.$");
}

TEST_F(UtcDate, FollowsTheCalendarAndTheDigitsOfTheLocale) {
  EXPECT_EXIT(print("th_TH.UTF-8", "UTC", {at(kMidnight)}), testing::ExitedWithCode(0),
              "^2569-03-04\\.$");
  EXPECT_EXIT(print("ar_EG.UTF-8", "UTC", {at(kMidnight)}), testing::ExitedWithCode(0),
              "^٢٠٢٦-٠٣-٠٤\\.$");
  EXPECT_EXIT(print("fa_IR.UTF-8", "UTC", {at(kMidnight)}), testing::ExitedWithCode(0),
              "^۱۴۰۴-۱۲-۱۳\\.$");
}

TEST_F(UtcDate, IsTheSameTextInWesternAndEastAsianLocales) {
  for (const auto* locale : {"C", "de_DE.UTF-8", "ja_JP.UTF-8"}) {
    EXPECT_EXIT(print(locale, "UTC", {at(kMidnight)}), testing::ExitedWithCode(0),
                "^2026-03-04\\.$")
        << locale;
  }
}

}  // namespace
}  // namespace pelmar
