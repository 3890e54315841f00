#include "config/activity_log.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>

#include "platform/dates.h"
#include "tests/support/temp_root.h"

namespace pelmar {
namespace {

using test::contentOf;
using test::writeFile;

namespace fs = std::filesystem;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & mode_t{07777};
}

// No permission bit is withheld, so that modes show as they were asked for.
class ActivityLogTest : public testing::Test {
 protected:
  ActivityLogTest() : mask_(::umask(0)) {}
  ~ActivityLogTest() override { ::umask(mask_); }

  // The log with the time of each record and this process's id made plain.
  std::string records() const {
    static const std::regex time(R"("ts":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z")");
    const std::string pid = "\"pid\":" + std::to_string(::getpid()) + ",";
    const auto text = std::regex_replace(contentOf(root_.activityLog()), time, R"("ts":"TIME")");
    return std::regex_replace(text, std::regex(pid), R"("pid":PID,)");
  }

  std::string logs() const { return root_.home() + "/.pelmar/logs"; }

  static void recordShort() { ActivityLog::record("POST", "u", 200, 1, 2, "", std::nullopt); }

  test::TempRoot root_;

 private:
  mode_t mask_;
};

constexpr auto* kShort =
    R"({"bytes":2,"daemon":"cowork-watcher","method":"POST","ms":1,"pid":PID,"status":200,)"
    R"("ts":"TIME","url":"u"})"
    "\n";

TEST_F(ActivityLogTest, WritesAFullRecordCompactlyWithSortedKeys) {
  ActivityLog::record("POST", "https://h/api/v1/", 503, 1234, 56, "3 steps", "it broke");
  EXPECT_EQ(records(),
            R"({"bytes":56,"daemon":"cowork-watcher","error":"it broke","method":"POST","ms":1234,)"
            R"("pid":PID,"status":503,"summary":"3 steps","ts":"TIME",)"
            R"("url":"https:\/\/h\/api\/v1\/"})"
            "\n");
}

TEST_F(ActivityLogTest, WritesTheTimeOfWritingInUtc) {
  const auto before = iso8601Milliseconds(std::chrono::system_clock::now());
  recordShort();
  const auto after = iso8601Milliseconds(std::chrono::system_clock::now());
  const std::string text = contentOf(root_.activityLog());
  const auto time = text.substr(text.find("\"ts\":\"") + 6, before.size());
  EXPECT_LE(before, time);
  EXPECT_LE(time, after);
}

TEST_F(ActivityLogTest, LeavesOutAnEmptySummaryAndAnAbsentOrEmptyError) {
  ActivityLog::record("POST", "u", 200, 1, 2, "", std::nullopt);
  ActivityLog::record("POST", "u", 200, 1, 2, "", "");
  EXPECT_EQ(records(), std::string(kShort) + kShort);
  ActivityLog::record("POST", "u", 200, 1, 2, "s", "");
  ActivityLog::record("POST", "u", 200, 1, 2, "", "e");
  EXPECT_EQ(
      records(),
      std::string(kShort) + kShort +
          R"({"bytes":2,"daemon":"cowork-watcher","method":"POST","ms":1,"pid":PID,"status":200,)"
          R"("summary":"s","ts":"TIME","url":"u"})"
          "\n"
          R"({"bytes":2,"daemon":"cowork-watcher","error":"e","method":"POST","ms":1,"pid":PID,)"
          R"("status":200,"ts":"TIME","url":"u"})"
          "\n");
}

TEST_F(ActivityLogTest, EscapesEverySlashAndWhatJsonMustEscape) {
  ActivityLog::record("G/T", "/a//b/", 0, 0, 0, "1/2 \"steps\"", "no\\way\n\xC3\xA9\xFF");
  EXPECT_EQ(records(),
            R"({"bytes":0,"daemon":"cowork-watcher","error":"no\\way\n)"
            "\xC3\xA9\xEF\xBF\xBD"
            R"(","method":"G\/T","ms":0,"pid":PID,"status":0,"summary":"1\/2 \"steps\"",)"
            R"("ts":"TIME","url":"\/a\/\/b\/"})"
            "\n");
}

TEST_F(ActivityLogTest, WritesNumbersOfAnySize) {
  ActivityLog::record("GET", "u", -1, 9223372036854775807, -9223372036854775807 - 1, "", {});
  EXPECT_EQ(records(), R"({"bytes":-9223372036854775808,"daemon":"cowork-watcher","method":"GET",)"
                       R"("ms":9223372036854775807,"pid":PID,"status":-1,"ts":"TIME","url":"u"})"
                       "\n");
}

TEST_F(ActivityLogTest, CreatesFoldersAndFileForTheirOwnerOnly) {
  recordShort();
  EXPECT_EQ(records(), kShort);
  EXPECT_EQ(modeOf(root_.home() + "/.pelmar"), 0700U);
  EXPECT_EQ(modeOf(logs()), 0700U);
  EXPECT_EQ(modeOf(root_.activityLog()), 0600U);
  EXPECT_EQ(std::distance(fs::directory_iterator(logs()), fs::directory_iterator()), 1);
}

TEST_F(ActivityLogTest, AppendsToWhatIsThereAndKeepsItsMode) {
  writeFile(root_.activityLog(), "whatever was here\n");
  fs::permissions(root_.activityLog(), fs::perms(0644));
  fs::create_hard_link(root_.activityLog(), root_.path() + "/same");
  recordShort();
  recordShort();
  EXPECT_EQ(records(), "whatever was here\n" + std::string(kShort) + kShort);
  EXPECT_EQ(modeOf(root_.activityLog()), 0644U);
  EXPECT_EQ(contentOf(root_.path() + "/same"), contentOf(root_.activityLog()));
}

TEST_F(ActivityLogTest, AppendsToAnEmptyFileAndBehindALineWithoutAnEnd) {
  writeFile(root_.activityLog(), "");
  recordShort();
  EXPECT_EQ(records(), kShort);
  writeFile(root_.activityLog(), "half");
  recordShort();
  EXPECT_EQ(records(), "half" + std::string(kShort));
}

TEST_F(ActivityLogTest, FollowsALinkToTheFile) {
  writeFile(root_.path() + "/elsewhere", "first\n");
  fs::create_directories(logs());
  fs::create_symlink(root_.path() + "/elsewhere", root_.activityLog());
  recordShort();
  EXPECT_EQ(records(), "first\n" + std::string(kShort));
  EXPECT_TRUE(fs::is_symlink(root_.activityLog()));
}

TEST_F(ActivityLogTest, ReplacesWhatCannotBeOpenedForWriting) {
  fs::create_directories(logs());
  ASSERT_EQ(::mkfifo(root_.activityLog().c_str(), 0600), 0);
  recordShort();
  ASSERT_TRUE(fs::is_regular_file(root_.activityLog()));
  EXPECT_EQ(records(), kShort);
}

TEST_F(ActivityLogTest, ReturnsWhenTheHomeIsAFile) {
  fs::remove(root_.home());
  writeFile(root_.home(), "no folder");
  recordShort();
  EXPECT_EQ(contentOf(root_.home()), "no folder");
}

TEST_F(ActivityLogTest, ReturnsWhenTheFolderOrTheLogIsOfAnotherKind) {
  writeFile(root_.home() + "/.pelmar", "no folder");
  recordShort();
  EXPECT_EQ(contentOf(root_.home() + "/.pelmar"), "no folder");

  fs::remove(root_.home() + "/.pelmar");
  writeFile(root_.activityLog() + "/inner", "kept");
  recordShort();
  EXPECT_EQ(contentOf(root_.activityLog() + "/inner"), "kept");
  EXPECT_EQ(std::distance(fs::directory_iterator(logs()), fs::directory_iterator()), 1);
}

}  // namespace
}  // namespace pelmar
