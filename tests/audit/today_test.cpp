#include <gmock/gmock.h>

#include <chrono>

#include "audit/line_processing.h"
#include "platform/dates.h"

namespace pelmar {
namespace {

TEST(TodayDateUTC, IsTheDateOfNow) {
  const std::string before = utcDate(std::chrono::system_clock::now());
  const std::string today = todayDateUTC();
  const std::string after = utcDate(std::chrono::system_clock::now());
  EXPECT_THAT(today, testing::AnyOf(before, after));
}

}  // namespace
}  // namespace pelmar
