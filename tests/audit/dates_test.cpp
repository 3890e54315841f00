// Every date is taken in a process of its own: ICU asks for the user's locale once.

#include "platform/dates.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "audit/line_processing.h"

namespace pelmar {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;

constexpr TimePoint kMidnight = sys_days(2026y / 3 / 4);

class UtcDateDeathTest : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

[[noreturn]] void printDates(const char* locale, const std::vector<TimePoint>& times) {
  ::setenv("LC_ALL", locale, 1);
  for (const TimePoint time : times) std::cerr << '<' << utcDate(time) << '>';
  std::exit(0);
}

TEST_F(UtcDateDeathTest, DateChangesAtMidnightUtc) {
  EXPECT_EXIT(printDates("C", {kMidnight - 1ns, kMidnight, kMidnight + 24h - 1ns, kMidnight + 24h}),
              testing::ExitedWithCode(0), "^<2026-03-03><2026-03-04><2026-03-04><2026-03-05>$");
}

TEST_F(UtcDateDeathTest, DateFollowsAClockThatGoesBack) {
  EXPECT_EXIT(printDates("C", {kMidnight, kMidnight - 1ns, kMidnight}), testing::ExitedWithCode(0),
              "^<2026-03-04><2026-03-03><2026-03-04>$");
}

TEST_F(UtcDateDeathTest, DateIsTheDayOfTheCalendarYear) {
  EXPECT_EXIT(printDates("C", {sys_days(2027y / 1 / 1) - 1ms, sys_days(2027y / 1 / 1),
                               sys_days(2028y / 2 / 29), sys_days(1970y / 1 / 1)}),
              testing::ExitedWithCode(0), "^<2026-12-31><2027-01-01><2028-02-29><1970-01-01>$");
}

TEST_F(UtcDateDeathTest, LocalTimeZoneMakesNoDifference) {
  for (const char* zone : {"Pacific/Kiritimati", "Pacific/Pago_Pago", "UTC+12", "UTC-14"}) {
    ::setenv("TZ", zone, 1);
    EXPECT_EXIT(printDates("C", {kMidnight - 1ns, kMidnight}), testing::ExitedWithCode(0),
                "^<2026-03-03><2026-03-04>$")
        << zone;
  }
  ::unsetenv("TZ");
}

TEST_F(UtcDateDeathTest, WesternLocalesWriteTheSameDate) {
  for (const char* locale : {"en_US.UTF-8", "de_DE.UTF-8", "ja_JP.UTF-8"}) {
    EXPECT_EXIT(printDates(locale, {kMidnight}), testing::ExitedWithCode(0), "^<2026-03-04>$")
        << locale;
  }
}

TEST_F(UtcDateDeathTest, ThaiLocaleCountsBuddhistYears) {
  EXPECT_EXIT(printDates("th_TH.UTF-8", {kMidnight - 1ns, kMidnight}), testing::ExitedWithCode(0),
              "^<2569-03-03><2569-03-04>$");
}

TEST_F(UtcDateDeathTest, EgyptianLocaleWritesArabicDigits) {
  EXPECT_EXIT(printDates("ar_EG.UTF-8", {kMidnight}), testing::ExitedWithCode(0), "^<٢٠٢٦-٠٣-٠٤>$");
}

TEST_F(UtcDateDeathTest, PersianLocaleHasItsOwnCalendarAndDigits) {
  EXPECT_EXIT(printDates("fa_IR.UTF-8", {kMidnight}), testing::ExitedWithCode(0), "^<۱۴۰۴-۱۲-۱۳>$");
}

TEST(TodayDateUTC, IsTheDateOfNow) {
  const std::string before = utcDate(std::chrono::system_clock::now());
  const std::string today = todayDateUTC();
  const std::string after = utcDate(std::chrono::system_clock::now());
  EXPECT_THAT(today, testing::AnyOf(before, after));
}

}  // namespace
}  // namespace pelmar
