// From a line in a transcript to a step in the service, through restarts and outages.

#include <gmock/gmock.h>

#include "journal/journal.h"
#include "platform/json.h"
#include "tests/system/agent_test.h"

namespace pelmar::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(AgentTest, FirstStartReportsOnlyWhatIsWrittenLater) {
  configure("garden");
  const auto transcript = root_.addTranscript("s1", userLine("1", "before"));
  const auto agent = startAgent();
  ASSERT_TRUE(agent->waitForLine("seeded cursor to EOF for 1 audit files (tail-only)"));
  appendToFile(transcript, userLine("2", "after"));
  ASSERT_TRUE(waitForSteps(1));
  waitForAnotherPass(*agent);
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("after"));
}

TEST_F(AgentTest, FromStartReportsWhatStandsThere) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "before"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(waitForSteps(1));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("before"));
}

TEST_F(AgentTest, ASessionThatBeginsLaterIsReportedWhole) {
  configure("garden");
  const auto agent = startAgent();
  waitForAnotherPass(*agent);
  root_.addTranscript("s2", userLine("1", "hello") + userLine("2", "again"));
  ASSERT_TRUE(waitForSteps(2));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("hello", "again"));
}

TEST_F(AgentTest, ATranscriptWithoutASessionRecordIsNotReported) {
  configure("garden");
  writeFile(root_.projects() + "/p/unknown.jsonl", userLine("1", "secret"));
  root_.addTranscript("known", userLine("2", "hello"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(waitForSteps(1));
  waitForAnotherPass(*agent);
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("hello"));
}

TEST_F(AgentTest, ARestartGoesOnWhereTheAgentStopped) {
  configure("garden");
  const auto transcript = root_.addTranscript("s1", userLine("1", "one"));
  {
    const auto agent = startAgent({"--from-start"});
    ASSERT_TRUE(waitForSteps(1));
    waitForAnotherPass(*agent);
  }
  appendToFile(transcript, userLine("2", "while it was down"));
  const auto agent = startAgent();
  ASSERT_TRUE(waitForSteps(2));
  appendToFile(transcript, userLine("3", "three"));
  ASSERT_TRUE(waitForSteps(3));
  waitForAnotherPass(*agent);
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "while it was down", "three"));
  EXPECT_EQ(service_->steps().back().at("position"), 2);
}

TEST_F(AgentTest, AJournalDoesNotContinueACursorFileThatCannotBeLoaded) {
  configure("garden");
  const auto transcript = root_.addTranscript("s1", userLine("1", "reported before"));
  writeFile(root_.cursor(), "no JSON");
  Journal journal(root_.cursor());
  journal.addNew({transcript});
  journal.begin(transcript, json::object());
  journal.addEvent(json::object(), "some key");
  const auto agent = startAgent();
  ASSERT_TRUE(agent->waitForLine("seeded cursor to EOF for 1 audit files (tail-only)"));
  waitForAnotherPass(*agent);
  EXPECT_THAT(service_->steps(), IsEmpty());
}

TEST_F(AgentTest, APartialLineIsReportedOnceItIsCompleted) {
  configure("garden");
  const auto transcript = root_.addTranscript("s1", "");
  const auto agent = startAgent();
  waitForAnotherPass(*agent);
  const std::string line = userLine("1", "in two pieces");
  appendToFile(transcript, line.substr(0, 30));
  waitForAnotherPass(*agent);
  EXPECT_THAT(service_->steps(), IsEmpty());
  appendToFile(transcript, line.substr(30));
  ASSERT_TRUE(waitForSteps(1));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("in two pieces"));
}

TEST_F(AgentTest, AMalformedLineCostsOnlyItself) {
  configure("garden");
  const auto transcript =
      root_.addTranscript("s1", userLine("1", "one") + "{broken\n\n[1]\n" + userLine("2", "two"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(agent->waitForLine("skipping malformed line in " + transcript));
  ASSERT_TRUE(agent->waitForLine("skipping malformed line in " + transcript));
  ASSERT_TRUE(waitForSteps(2));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "two"));
}

TEST_F(AgentTest, AnOutageOfTheServiceLosesNothingAndDoublesNothing) {
  configure("garden");
  service_->script("*", service::dropAfterRequest());
  root_.addTranscript("s1", userLine("1", "one") + userLine("2", "two"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(
      agent->waitForLine("transport failure after 3 attempts: /api/v1/observe/runs/daily/"));
  service_->clearScripts();
  ASSERT_TRUE(waitForSteps(2));
  waitForAnotherPass(*agent);
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "two"));
}

TEST_F(AgentTest, ARefusedStepHoldsUpItsOwnTranscriptOnly) {
  configure("");
  const auto refused = root_.addTranscript("refused", userLine("1", "never"));
  root_.addTranscript("taken", userLine("2", "hello"));
  service_->script("/api/v1/observe/runs/start/",
                   service::answerWith(200, R"({"run_id":"held","workflow_id":"w"})"), 1);
  const auto agent = startAgent({"--from-start"});
  // One of the two transcripts has the run that the service does not know.
  ASSERT_TRUE(agent->waitForLine("4xx 404 on /api/v1/observe/runs/held/steps/ — non-retryable"));
  ASSERT_TRUE(waitForSteps(1));
  ASSERT_TRUE(agent->waitForLine("4xx 404 on /api/v1/observe/runs/held/steps/ — non-retryable"));
  EXPECT_EQ(service_->steps().size(), 1);
}

TEST_F(AgentTest, ADailyRunOfAnotherDayIsLeftForTodays) {
  configure("garden");
  const std::string line = userLine("1", "a new day");
  const auto transcript = root_.addTranscript("s1", line);
  const json stale = {{transcript,
                       {{"offset", 0},
                        {"run_id", "of-yesterday"},
                        {"workflow_id", "w"},
                        {"step_position", 7},
                        {"daily_session_date", "2001-02-03"}}}};
  writeFile(root_.cursor(), stale.dump());
  const auto agent = startAgent();
  const auto message = agent->waitForLine("daily run stale");
  ASSERT_TRUE(message);
  EXPECT_THAT(*message, HasSubstr("(cached=2001-02-03 today=20"));
  ASSERT_TRUE(waitForSteps(1));
  const auto step = service_->steps().front();
  EXPECT_NE(step.at("run_id"), "of-yesterday");
  EXPECT_EQ(step.at("position"), 7);
}

TEST_F(AgentTest, WithoutADailyRunTheSessionGetsARunOfItsOwn) {
  configure("garden");
  service_->script("/api/v1/observe/runs/daily/", service::answerWith(404));
  root_.addTranscript("s1", userLine("1", "hello"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(waitForSteps(1));
  ASSERT_EQ(service_->runs().size(), 1);
  const json run = service_->runs().front();
  EXPECT_EQ(run.at("kind"), "session");
  EXPECT_EQ(run.at("agent_slug"), "garden");
  EXPECT_EQ(run.at("workflow_name"), "cowork:s");
}

TEST_F(AgentTest, SessionsOfOneAgentShareItsDailyRun) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "one"));
  root_.addTranscript("s2", userLine("2", "two"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(waitForSteps(2));
  EXPECT_EQ(service_->runs().size(), 1);
  EXPECT_TRUE(agent->waitForLine("(created)"));
  EXPECT_TRUE(agent->waitForLine("(existing)"));
}

TEST_F(AgentTest, AResultCompletesTheRunOfItsSession) {
  configure("");
  root_.addTranscript("s1", userLine("1", "hello") +
                                R"({"type":"result","subtype":"success","uuid":"2","num_turns":4})"
                                "\n");
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(service_->waitFor([this] { return !service_->completions().empty(); }, kPatience));
  const json completion = service_->completions().front();
  EXPECT_EQ(completion.at("status"), "success");
  EXPECT_EQ(completion.at("result"),
            (json{{"cowork_result_subtype", "success"}, {"num_turns", 4}}));
}

TEST_F(AgentTest, WhatTheAgentWritesIsForItsOwnerOnly) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "hello"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(waitForSteps(1));
  waitForAnotherPass(*agent);
  EXPECT_EQ(permissionsOf(root_.cursor()), 0600);
  EXPECT_EQ(permissionsOf(root_.activityLog()), 0600);
  EXPECT_EQ(permissionsOf(root_.home() + "/.pelmar/logs"), 0700);
}

TEST_F(AgentTest, NeitherKeyNorTranscriptTextIsInAnyLog) {
  configure("garden", "wrong-key-of-the-test");
  root_.addTranscript("s1",
                      userLine("1", "text of the transcript") + "{\"broken transcript text\n");
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(agent->waitForLine("4xx 401 on /api/v1/observe/runs/start/ — non-retryable"));
  ASSERT_TRUE(agent->waitForLine("could not establish run for "));
  agent->kill(SIGTERM);
  EXPECT_EQ(agent->waitForExit(), -SIGTERM);
  std::string logs = contentOf(root_.activityLog());
  for (const auto& line : agent->lines()) logs += line;
  EXPECT_THAT(logs, ::testing::Not(HasSubstr("key-of-the-test")));
  EXPECT_THAT(logs, ::testing::Not(HasSubstr("transcript text")));
  EXPECT_THAT(logs, ::testing::Not(HasSubstr("text of the transcript")));
}

}  // namespace
}  // namespace pelmar::test
