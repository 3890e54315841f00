// How the agent starts: where its profile comes from, what it says, how it ends without one.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/json.h"
#include "tests/system/agent_test.h"

namespace pelmar::test {
namespace {

using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// A log line without its time.
std::string withoutTime(const std::string& line) { return line.substr(line.find(' ') + 1); }

TEST_F(AgentTest, WithoutAProfileItSaysSoAndExitsWithStatusOne) {
  const auto agent = startAgent();
  EXPECT_EQ(agent->waitForExit(), 1);
  const auto lines = agent->lines();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(withoutTime(lines[0]), "info cowork-watcher PelmarCoworkWatcher starting (pid=" +
                                       std::to_string(agent->pid()) + ")");
  EXPECT_EQ(withoutTime(lines[1]),
            "error cowork-watcher No profile in ~/.pelmar/config (need [claude-cowork] or "
            "[claude-code]) — exiting");
  EXPECT_EQ(withoutTime(lines[2]),
            "error cowork-watcher CoworkWatcher main loop returned — exiting for launchd respawn");
}

TEST_F(AgentTest, SaysWhatItWatchesAndHowOften) {
  configure("garden");
  const auto agent = startAgent({"--poll", "0.25"});
  const auto line = agent->waitForLine("watching");
  ASSERT_TRUE(line);
  EXPECT_EQ(withoutTime(*line),
            "info cowork-watcher watching cowork sessions; profile=claude-cowork agent=garden "
            "poll=0.250000s");
}

TEST_F(AgentTest, SaysThatItHasNoAgentSlug) {
  configure("");
  const auto agent = startAgent();
  const auto line = agent->waitForLine("No agent_slug");
  ASSERT_TRUE(line);
  EXPECT_EQ(withoutTime(*line),
            "error cowork-watcher No agent_slug configured — runs will be created without Tandem "
            "attribution");
}

TEST_F(AgentTest, WithoutTranscriptsAPassReportsZeroAndSavesNothing) {
  configure("garden");
  const auto agent = startAgent();
  const auto line = agent->waitForLine("audit.jsonl files");
  ASSERT_TRUE(line);
  EXPECT_EQ(withoutTime(*line), "debug cowork-watcher found 0 audit.jsonl files");
  waitForAnotherPass(*agent);
  EXPECT_THROW(contentOf(root_.cursor()), std::runtime_error);
}

TEST_F(AgentTest, TheFirstHeartbeatFollowsTheFirstPassAndTheNextIsFarOff) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "hello"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(service_->waitFor([this] { return !service_->heartbeats().empty(); }, kPatience));
  waitForAnotherPass(*agent);
  waitForAnotherPass(*agent);
  ASSERT_THAT(service_->heartbeats(), SizeIs(1));
  EXPECT_EQ(service_->heartbeats().front().at("source"), "watcher");
  const auto requests = service_->requests();
  ASSERT_THAT(requests, SizeIs(3));
  EXPECT_THAT(requests[1].request.path, EndsWith("/steps/"));
  EXPECT_EQ(requests[2].request.path, "/api/v1/observe/agents/garden/heartbeat/");
}

TEST_F(AgentTest, AHeartbeatThatFailedIsNotRepeatedBeforeItsTime) {
  configure("garden");
  service_->script("/api/v1/observe/agents/*", service::answerWith(500));
  const auto agent = startAgent();
  ASSERT_TRUE(service_->waitFor([this] { return !service_->requests().empty(); }, kPatience));
  waitForAnotherPass(*agent);
  waitForAnotherPass(*agent);
  EXPECT_THAT(service_->requests(), SizeIs(1));
}

TEST_F(AgentTest, AStandardErrorThatIsGoneDoesNotEndIt) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  const pid_t pid = startProgram({PELMAR_AGENT}, {"PELMAR_ROOT=" + root_.path()}, ends[1]);
  ::close(ends[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);  // for want of a profile, and not by a signal
}

TEST_F(AgentTest, WithoutAnAgentSlugThereIsNoHeartbeat) {
  configure("");
  const auto agent = startAgent();
  waitForAnotherPass(*agent);
  waitForAnotherPass(*agent);
  EXPECT_THAT(service_->requests(), IsEmpty());
}

TEST_F(AgentTest, TheDeviceEnrollmentComesBeforeTheConfigFile) {
  configure("from-config");
  enrollDevice("from-device");
  const auto agent = startAgent();
  EXPECT_TRUE(agent->waitForLine("profile=device agent=from-device"));
}

TEST_F(AgentTest, TheConfigFileWithASlugComesBeforeTheManagedEnrollment) {
  configure("from-config");
  writeFile(root_.setup() + "/enroll-config.json",
            json{{"api_url", service_->url()}, {"api_key", kKey}}.dump());
  const auto agent = startAgent();
  EXPECT_TRUE(agent->waitForLine("profile=claude-cowork agent=from-config"));
}

TEST_F(AgentTest, TheManagedEnrollmentComesBeforeAConfigFileWithoutASlug) {
  configure("");
  writeFile(root_.setup() + "/enroll-config.json",
            json{{"api_url", service_->url()}, {"api_key", kKey}}.dump());
  const auto agent = startAgent();
  EXPECT_TRUE(agent->waitForLine("profile=managed agent= "));
}

TEST_F(AgentTest, TheMachinesUuidGoesWithEveryStep) {
  configure("garden");
  root_.addTranscript("s1", userLine("1", "hello"));
  const auto agent = startAgent({"--from-start"});
  ASSERT_TRUE(waitForSteps(1));
  const json step = service_->steps().front();
  EXPECT_EQ(step.at("hardware_uuid"), kHardwareUuid);
  EXPECT_EQ(step.at("output").at("hardware_uuid"), kHardwareUuid);
}

}  // namespace
}  // namespace pelmar::test
