#include "status/activity.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/status/status_home.h"
#include "tests/support/without_privileges.h"

namespace pelmar::status {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

// 2026-01-02T12:00:00Z
constexpr TimePoint kNoon{std::chrono::sys_days{std::chrono::January / 2 / 2026} +
                          std::chrono::hours(12)};

std::string record(const char* time, int status, int ms, const char* path = "/steps/") {
  return std::string(R"({"ts":")") + time + R"(","url":"https:\/\/a.example)" + path +
         R"(","status":)" + std::to_string(status) + R"(,"ms":)" + std::to_string(ms) + "}\n";
}

TEST(Activity, CountsByStatusWithinTheHourAndTheDay) {
  const auto activity = activityIn(
      record("2026-01-01T11:59:59.999Z", 200, 9) + record("2026-01-01T12:00:00.000Z", 500, 8) +
          record("2026-01-02T10:59:59.999Z", 200, 7) + record("2026-01-02T11:00:00.000Z", 200, 1) +
          record("2026-01-02T11:59:00.000Z", 0, 3),
      kNoon);
  EXPECT_THAT(activity.lastHour, ElementsAre(Pair(0, 1), Pair(200, 1)));
  EXPECT_THAT(activity.lastDay, ElementsAre(Pair(0, 1), Pair(200, 2), Pair(500, 1)));
  EXPECT_EQ(activity.failuresLastHour, 1U);
  EXPECT_EQ(activity.lastSuccess->time, "2026-01-02T11:00:00.000Z");
  EXPECT_EQ(activity.lastFailure->time, "2026-01-02T11:59:00.000Z");
  EXPECT_EQ(activity.slowestOfDay->milliseconds, 8);
}

TEST(Activity, TransferErrorIsAFailureWhateverItsStatus) {
  const auto activity = activityIn(
      R"({"ts":"2026-01-02T11:59:00.000Z","url":"http://a","status":200,"error":"broken"})", kNoon);
  EXPECT_FALSE(activity.lastSuccess);
  EXPECT_EQ(activity.lastFailure->error, "broken");
  EXPECT_EQ(activity.lastFailure->path, "/");
}

TEST(Activity, RefusalsAreCountedByPathWithoutTheQuery) {
  const auto activity = activityIn(record("2026-01-02T10:00:00.000Z", 400, 1, "/a/") +
                                       record("2026-01-02T11:10:00.000Z", 399, 1, "/a/") +
                                       record("2026-01-02T11:20:00.000Z", 400, 1, "/a/") +
                                       record("2026-01-02T11:30:00.000Z", 499, 1, "/a/?x=y") +
                                       record("2026-01-02T11:40:00.000Z", 500, 1, "/a/"),
                                   kNoon);
  ASSERT_EQ(activity.refusedLastHour.size(), 1U);
  const auto& refusals = activity.refusedLastHour.at("/a/");
  EXPECT_EQ(refusals.count, 2U);
  EXPECT_EQ(refusals.status, 499);
  EXPECT_EQ(refusals.since, "2026-01-02T11:20:00.000Z");
}

TEST(Activity, LinesThatAreNoRecordsArePassedOver) {
  const auto activity = activityIn(
      "half a line\"}\n\n[]\n{}\n" + record("2026-01-02T11:00:00.000Z", 200, 1) + "{\"ts\":",
      kNoon);
  EXPECT_THAT(activity.lastHour, ElementsAre(Pair(200, 1)));
}

TEST(ReadActivity, WithoutALogThereIsNothingToSay) {
  const test::TempRoot root;
  const auto activity = readActivity(kNoon);
  EXPECT_THAT(activity.problem, IsEmpty());
  EXPECT_FALSE(activity.last);
  EXPECT_TRUE(activity.isWhole);
}

TEST(ReadActivity, OfALongLogOnlyTheNewestPartIsRead) {
  const test::TempRoot root;
  const std::string old = record("2026-01-02T11:00:00.000Z", 500, 1);
  test::writeFile(root.activityLog(), old + std::string(8 * 1024 * 1024, ' ') + "\n" +
                                          record("2026-01-02T11:30:00.000Z", 200, 1));
  const auto activity = readActivity(kNoon);
  EXPECT_FALSE(activity.isWhole);
  EXPECT_THAT(activity.lastHour, ElementsAre(Pair(200, 1)));
}

TEST(ReadActivity, LogThatCannotBeReadIsNamed) {
  const test::TempRoot root;
  test::writeFile(root.activityLog(), "");
  test::openToAll(root.path());
  std::filesystem::permissions(root.activityLog(), std::filesystem::perms::none);
  const test::WithoutPrivileges forNow;
  EXPECT_THAT(readActivity(kNoon).problem, HasSubstr("activity.jsonl cannot be read: Permission"));
}

}  // namespace
}  // namespace pelmar::status
