#include "status/report.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "journal/journal.h"
#include "tests/status/status_home.h"
#include "tests/support/without_privileges.h"

namespace pelmar::status {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::vector<std::string> textsOf(const Report& report) {
  std::vector<std::string> texts;
  for (const Finding& finding : report.findings) texts.push_back(finding.text);
  return texts;
}

class StatusReport : public ::testing::Test {
 protected:
  StatusReport() {
    home_.setAgentRunning();
    home_.setGoodConfig();
  }

  test::StatusHome home_;
};

TEST_F(StatusReport, AgentThatHasReportedEverythingIsHealthy) {
  const std::string path = home_.addTranscript("s1", "12345");
  home_.setCursor(path, R"({"offset":5,"run_id":"r1","daily_session_date":"2026-01-01",
                            "step_position":3})");
  home_.addRequest(1, "/api/v1/observe/runs/r1/steps/", 200);
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report), IsEmpty());
  EXPECT_EQ(report.verdict(), Verdict::healthy);
  ASSERT_THAT(report.sessions.sessions, SizeIs(1));
  const Session& session = report.sessions.sessions[0];
  EXPECT_EQ(session.id, "s1");
  EXPECT_EQ(session.title, "s1");
  EXPECT_EQ(session.offset, 5);
  EXPECT_EQ(session.behind, 0);
  EXPECT_EQ(session.runKind, RunKind::daily);
  EXPECT_EQ(session.runId, "r1");
  EXPECT_EQ(session.lastStep, 2);
}

TEST_F(StatusReport, WithoutAnAgentItDoesNotReport) {
  home_.setProcesses(" 1 01:00 /sbin/init\n");
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report), ElementsAre("the agent is not running"));
  EXPECT_EQ(report.verdict(), Verdict::notReporting);
}

TEST_F(StatusReport, WithoutPsNobodyKnowsWhetherTheAgentRuns) {
  std::filesystem::remove(home_.path() + "/bin/ps");
  EXPECT_EQ(takeReport(false).verdict(), Verdict::problems);
}

TEST_F(StatusReport, SecondAgentIsAProblem) {
  home_.setProcesses("1 00:01 PelmarCoworkWatcher\n2 00:01 PelmarCoworkWatcher\n");
  EXPECT_EQ(takeReport(false).verdict(), Verdict::problems);
}

TEST_F(StatusReport, WithoutAProfileEverySourceSaysWhy) {
  home_.setConfig("[default]\napi_key = k\n");
  test::writeFile(home_.setup() + "/enroll-config.json", R"({"api_url":"http://a"})");
  const Report report = takeReport(false);
  EXPECT_EQ(report.verdict(), Verdict::notReporting);
  using PelmarConfig::PassedOver;
  EXPECT_THAT(
      report.resolution.passedOver,
      ElementsAre(PassedOver{"device", home_.setup() + "/device-identity.json does not exist"},
                  PassedOver{"claude-cowork", "there is no such section"},
                  PassedOver{"claude-code", "there is no such section"},
                  PassedOver{"tandem", "there is no such section"},
                  PassedOver{"default", "it has no api_url"},
                  PassedOver{"managed", home_.setup() + "/enroll-config.json has no api_key"}));
}

TEST_F(StatusReport, SectionWithoutASlugComesBehindTheManagedEnrollment) {
  home_.setConfig("[claude-cowork]\napi_url = http://a\napi_key = k\n");
  EXPECT_EQ(takeReport(false).resolution.profile->name, "claude-cowork");
  test::writeFile(home_.setup() + "/enroll-config.json", R"({"api_url":"http://m","api_key":"k"})");
  const Report report = takeReport(false);
  EXPECT_EQ(report.resolution.profile->name, "managed");
  EXPECT_EQ(report.resolution.passedOver.back().reason,
            "it has no agent_slug, so a managed enrollment comes before it");
}

TEST_F(StatusReport, CompleteEnrollmentIsNotAskedUnlessWanted) {
  test::writeFile(home_.setup() + "/device-identity.json",
                  R"({"device_token":"t","tenant_slug":"s","api_url":"http://127.0.0.1:1"})");
  home_.setConfig("");
  const Report report = takeReport(false);
  EXPECT_TRUE(report.isDeviceNotAsked);
  EXPECT_EQ(report.verdict(), Verdict::healthy);
}

TEST_F(StatusReport, ConfigFindingsNameTheLine) {
  home_.setConfig("[claude-cowork]\r\napi_url = http://a\r\n");
  EXPECT_THAT(textsOf(takeReport(false)),
              ElementsAre("no source gives a profile",
                          HasSubstr("/.pelmar/config line 1: the line ends with CR LF")));
}

TEST_F(StatusReport, QuotedValueIsANoteOnly) {
  home_.setConfig("[claude-cowork]\napi_url = \"http://a\"\napi_key = k\nagent_slug = s\n");
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report), ElementsAre(HasSubstr("line 2: the double quotes")));
  EXPECT_EQ(report.verdict(), Verdict::healthy);
}

TEST_F(StatusReport, RecordsAndTranscriptsWithoutEachOtherAreCounted) {
  home_.addSession("only-record");
  test::writeFile(home_.sessionRecords() + "/local_bad.json", "no json");
  test::writeFile(home_.projects() + "/p/only-transcript.jsonl", "12");
  test::writeFile(home_.projects() + "/debug/skipped.jsonl", "12");
  const Sessions sessions = takeReport(false).sessions;
  EXPECT_EQ(sessions.records, 2U);
  EXPECT_EQ(sessions.transcripts, 1U);
  EXPECT_THAT(sessions.sessions, IsEmpty());
  EXPECT_THAT(sessions.recordsWithoutTranscript, ElementsAre("only-record"));
  EXPECT_THAT(sessions.transcriptsWithoutRecord,
              ElementsAre(home_.projects() + "/p/only-transcript.jsonl"));
  EXPECT_THAT(sessions.uselessRecords, ElementsAre(home_.sessionRecords() + "/local_bad.json"));
}

TEST_F(StatusReport, SessionsAreNamedByTheirTitle) {
  home_.addTranscript("s1", "");
  test::writeFile(home_.sessionRecords() + "/account/local_s1.json",
                  R"({"cliSessionId":"s1","title":"Plan the garden"})");
  const Report report = takeReport(false);
  ASSERT_THAT(report.sessions.sessions, SizeIs(1));
  EXPECT_EQ(report.sessions.sessions[0].title, "Plan the garden");
}

TEST_F(StatusReport, BacklogIsTheBytesBehindOfAllSessions) {
  const std::string a = home_.addTranscript("a", "123456789\n");
  home_.addTranscript("b", "12345");
  home_.setCursor(a, R"({"offset":4})");
  const Sessions sessions = takeReport(false).sessions;
  EXPECT_EQ(sessions.backlog, 6 + 5);
}

TEST_F(StatusReport, OffsetBelowZeroIsWhereTheAgentEnds) {
  home_.setCursor(home_.addTranscript("a", "123456789\n"), R"({"offset":-1})");
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report),
              ElementsAre("the cursor has an offset below zero for \"a\": the agent ends there"));
  EXPECT_EQ(report.verdict(), Verdict::notReporting);
}

TEST_F(StatusReport, WhatTheJournalHasIsNotBehind) {
  const std::string a = home_.addTranscript("a", "123456789\n");
  home_.setCursor(a, R"({"offset":4})");
  Journal journal(home_.cursor());
  journal.begin(a, {{"offset", 4}});
  journal.addLine({{"offset", 4}, {"run_id", "R"}}, 8);
  const Sessions sessions = takeReport(false).sessions;
  EXPECT_EQ(sessions.backlog, 2);
  EXPECT_EQ(sessions.sessions.at(0).runId, "R");
}

TEST_F(StatusReport, TranscriptShorterThanItsOffsetIsNotBehind) {
  const std::string a = home_.addTranscript("a", "1234");
  home_.setCursor(a, R"({"offset":9})");
  EXPECT_EQ(takeReport(false).sessions.backlog, 0);
}

TEST_F(StatusReport, EventRefusedAgainAndAgainHoldsItsSessionUp) {
  const std::string path = home_.addTranscript("s1", "12345");
  home_.setCursor(path, R"({"offset":1,"run_id":"r1"})");
  home_.addRequest(3, "/api/v1/observe/runs/r1/steps/", 413);
  EXPECT_FALSE(takeReport(false).sessions.sessions.at(0).heldUpBy);  // once is no pattern
  home_.addRequest(2, "/api/v1/observe/runs/r1/steps/", 413);
  home_.addRequest(1, "/api/v1/observe/runs/r2/steps/", 200);
  const Report report = takeReport(false);
  EXPECT_EQ(report.verdict(), Verdict::problems);
  ASSERT_TRUE(report.sessions.sessions.at(0).heldUpBy);
  EXPECT_EQ(report.sessions.sessions.at(0).heldUpBy->status, 413);
  EXPECT_EQ(report.sessions.sessions.at(0).heldUpBy->count, 2U);
  EXPECT_THAT(
      report.findings.at(0).text,
      HasSubstr("\"s1\" is held up: the service refused an event with status 413, 2 times"));
}

TEST_F(StatusReport, RefusedRunHoldsUpASessionWithoutOne) {
  home_.addTranscript("s1", "12345");
  home_.addRequest(2, "/api/v1/observe/runs/daily/", 403);
  home_.addRequest(1, "/api/v1/observe/runs/daily/", 403);
  const Report report = takeReport(false);
  ASSERT_TRUE(report.sessions.sessions.at(0).heldUpBy);
  EXPECT_EQ(report.sessions.sessions.at(0).heldUpBy->status, 403);
  EXPECT_EQ(report.verdict(), Verdict::notReporting);  // and nothing got through since
}

TEST_F(StatusReport, RefusalsOfOthersDoNotHoldASessionUp) {
  const std::string path = home_.addTranscript("s1", "12345");
  home_.setCursor(path, R"({"offset":1,"run_id":"r1"})");
  for (const int minutes : {3, 2}) {
    home_.addRequest(minutes, "/api/v1/observe/runs/r2/steps/", 413);
    home_.addRequest(minutes, "/api/v1/observe/runs/daily/", 413);
  }
  EXPECT_FALSE(takeReport(false).sessions.sessions.at(0).heldUpBy);
}

TEST_F(StatusReport, SessionWithoutABacklogIsNotHeldUp) {
  const std::string path = home_.addTranscript("s1", "12345");
  home_.setCursor(path, R"({"offset":5,"run_id":"r1"})");
  home_.addRequest(2, "/api/v1/observe/runs/r1/steps/", 413);
  home_.addRequest(1, "/api/v1/observe/runs/r1/steps/", 413);
  EXPECT_FALSE(takeReport(false).sessions.sessions.at(0).heldUpBy);
}

TEST_F(StatusReport, FailingRequestsWithABacklogAreNotReporting) {
  home_.addTranscript("s1", "12345");
  home_.addRequest(5, "/x/", 200);
  home_.addRequest(1, "/x/", 0, "could not connect");
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report), ElementsAre("the latest request failed: could not connect"));
  EXPECT_EQ(report.verdict(), Verdict::notReporting);
}

TEST_F(StatusReport, FailureThatWasOvercomeIsAProblemForAnHour) {
  home_.addRequest(61, "/x/", 500);
  home_.addRequest(1, "/x/", 200);
  EXPECT_EQ(takeReport(false).verdict(), Verdict::healthy);
  std::filesystem::remove(home_.activityLog());
  home_.addRequest(59, "/x/", 500);
  home_.addRequest(1, "/x/", 200);
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report), ElementsAre("requests that failed in the last hour: 1"));
  EXPECT_EQ(report.verdict(), Verdict::problems);
}

TEST_F(StatusReport, CursorOfAnotherShapeIsAProblem) {
  for (const char* text : {"[]", "{\"a\": 1}", "{"}) {
    test::writeFile(home_.cursor(), text);
    EXPECT_THAT(textsOf(takeReport(false)), ElementsAre(HasSubstr("cowork-cursor.json"))) << text;
  }
}

TEST_F(StatusReport, WhatCannotBeReadIsNamed) {
  const std::string path = home_.addTranscript("s1", "12345");
  std::filesystem::create_directories(home_.projects() + "/secret");
  test::openToAll(home_.path());
  std::filesystem::permissions(path, std::filesystem::perms::none);
  std::filesystem::permissions(home_.projects() + "/secret", std::filesystem::perms::none);
  std::vector<std::string> texts;
  {
    const test::WithoutPrivileges forNow;
    texts = textsOf(takeReport(false));
  }
  EXPECT_THAT(texts, ::testing::IsSupersetOf(
                         {path + " cannot be read: Permission denied",
                          home_.projects() + "/secret cannot be read: Permission denied"}));
  std::filesystem::permissions(home_.projects() + "/secret", std::filesystem::perms::owner_all);
}

TEST_F(StatusReport, RecordThatCannotBeReadLeavesNothingToReport) {
  home_.addTranscript("s1", "12345");
  test::openToAll(home_.path());
  const std::string record = home_.sessionRecords() + "/account/local_s1.json";
  std::filesystem::permissions(record, std::filesystem::perms::none);
  const test::WithoutPrivileges forNow;
  const Report report = takeReport(false);
  EXPECT_THAT(textsOf(report), ::testing::Contains(record + " cannot be read: Permission denied"));
  EXPECT_EQ(report.verdict(), Verdict::notReporting);
  EXPECT_THAT(report.sessions.uselessRecords, IsEmpty());
}

TEST(ReportOnConfig, GoodFileIsHealthy) {
  const test::StatusHome home;
  home.setGoodConfig();
  EXPECT_EQ(reportOnConfig(home.home() + "/.pelmar/config").verdict(), Verdict::healthy);
}

TEST(ReportOnConfig, FileWithoutAProfileOrNoneAtAllIsNotReporting) {
  const test::StatusHome home;
  home.setConfig("[claude-cowork]\napi_url = http://a\n");
  const std::string path = home.home() + "/.pelmar/config";
  EXPECT_EQ(reportOnConfig(path).verdict(), Verdict::notReporting);
  EXPECT_THAT(textsOf(reportOnConfig(path + "x")), ElementsAre(path + "x does not exist"));
}

TEST(Masked, OnlyTheEndOfALongKeyShows) {
  EXPECT_EQ(masked("0123456789abcde"), "****");
  EXPECT_EQ(masked("0123456789abcdef"), "****cdef");
  EXPECT_EQ(masked(""), "****");
}

TEST(WithoutPassword, UserAndPasswordOfAUrlAreLeftOut) {
  EXPECT_EQ(withoutPassword("https://u:p@a.example/x@y"), "https://a.example/x@y");
  EXPECT_EQ(withoutPassword("https://u:p@q@a.example"), "https://a.example");
  EXPECT_EQ(withoutPassword("https://a.example/?u@b"), "https://a.example/?u@b");
  EXPECT_EQ(withoutPassword("a.example"), "a.example");
}

}  // namespace
}  // namespace pelmar::status
