#include <gmock/gmock.h>

#include <cmath>

#include "watcher/cowork_audit_watcher.h"

namespace pelmar {
namespace {

constexpr double kSomeTime = 1'772'600'767.25;

TEST(Heartbeat, FirstOneIsDueAtOnce) { EXPECT_TRUE(isHeartbeatDue(kSomeTime, 0)); }

TEST(Heartbeat, NextOneIsDueAfterFiveMinutes) {
  EXPECT_FALSE(isHeartbeatDue(kSomeTime, kSomeTime));
  EXPECT_FALSE(isHeartbeatDue(kSomeTime + 299.5, kSomeTime));
  EXPECT_FALSE(isHeartbeatDue(std::nextafter(kSomeTime + 300, 0), kSomeTime));
  EXPECT_TRUE(isHeartbeatDue(kSomeTime + 300, kSomeTime));
  EXPECT_TRUE(isHeartbeatDue(std::nextafter(kSomeTime + 300, HUGE_VAL), kSomeTime));
  EXPECT_TRUE(isHeartbeatDue(kSomeTime + 3600, kSomeTime));
}

TEST(Heartbeat, ClockThatWentBackMakesNoneDue) {
  EXPECT_FALSE(isHeartbeatDue(kSomeTime - 3600, kSomeTime));
}

}  // namespace
}  // namespace pelmar
