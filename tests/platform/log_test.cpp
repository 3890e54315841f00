#include "platform/log.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

namespace pelmar {
namespace {

#define TIME "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2}"

// Where a message goes is decided once a process, so each test writes in one of its own, whose
// stderr is compared whole.
class LoggerOnStderr : public testing::Test {
 protected:
  LoggerOnStderr() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

constexpr Logger kLogger("cowork-watcher");

TEST_F(LoggerOnStderr, WritesTimeLevelCategoryAndTextOnOneLineAMessage) {
  EXPECT_EXIT(
      {
        kLogger.message("started");
        kLogger.error("4xx 404 on /path");
        Logger("cowork-watcher.client").debug("3 files");
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      testing::MatchesRegex(TIME " info cowork-watcher started\n" TIME
                                 " error cowork-watcher 4xx 404 on /path\n" TIME
                                 " debug cowork-watcher.client 3 files\n"));
}

TEST_F(LoggerOnStderr, WritesNothingItIsGivenAsAFormat) {
  EXPECT_EXIT(
      {
        kLogger.message("{} {0} %s %v %n \xE2\x80\x94 \xC3\xA9");
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      testing::MatchesRegex(
          TIME " info cowork-watcher \\{\\} \\{0\\} %s %v %n \xE2\x80\x94 \xC3\xA9\n"));
}

TEST_F(LoggerOnStderr, KeepsAMessageWithLineBreaksOnOneLine) {
  EXPECT_EXIT(
      {
        kLogger.error("a\nb\r\nc\n2026-01-01 error forged\x1B[31m");
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      testing::MatchesRegex(TIME " error cowork-watcher a[^\n\r]b[^\n\r]+c[^\n\r]"
                                 "2026-01-01 error forged[^\n\r\x1B]+\n"));
}

TEST_F(LoggerOnStderr, WritesAnEmptyMessage) {
  EXPECT_EXIT(
      {
        kLogger.message("");
        std::exit(0);
      },
      testing::ExitedWithCode(0), testing::MatchesRegex(TIME " info cowork-watcher \n"));
}

TEST_F(LoggerOnStderr, WritesEachMessageAtOnce) {
  EXPECT_EXIT(
      {
        kLogger.message("last words");
        std::_Exit(0);  // flushes nothing
      },
      testing::ExitedWithCode(0), testing::MatchesRegex(TIME " info cowork-watcher last words\n"));
}

TEST_F(LoggerOnStderr, StaysThereWhenTheJournalStreamIsAnother) {
  for (const auto* stream : {"", "0:0", "1:2", ":", "text"}) {
    EXPECT_EXIT(
        {
          ::setenv("JOURNAL_STREAM", stream, 1);
          kLogger.message("redirected");
          std::exit(0);
        },
        testing::ExitedWithCode(0), testing::MatchesRegex(TIME " info cowork-watcher redirected\n"))
        << stream;
  }
}

}  // namespace
}  // namespace pelmar
