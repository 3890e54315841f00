// The built program, from outside, with and without the real agent and the local service.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <memory>

#include "platform/json.h"
#include "service/local_service.h"
#include "tests/status/status_home.h"
#include "tests/support/child_process.h"

namespace pelmar::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Answer {
  std::string output;
  int status;
};

Answer runStatus(const std::string& switches) {
  FILE* pipe = ::popen(("exec " PELMAR_STATUS " " + switches + " 2>&1").c_str(), "r");
  Answer answer{};
  char buffer[4096];
  for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    answer.output.append(buffer, count);
  }
  answer.status = WEXITSTATUS(::pclose(pipe));
  return answer;
}

class StatusProgram : public ::testing::Test {
 protected:
  StatusProgram() {
    home_.setAgentRunning();
    std::string error;
    service::LocalServiceOptions options;
    options.database = home_.path() + "/service.db";
    options.key = "key-of-the-test";
    service_ = service::LocalService::start(std::move(options), error);
    if (!service_) throw std::runtime_error(error);
  }

  void configure(const std::string& key) {
    home_.setConfig("[claude-cowork]\napi_url = " + service_->url() + "\napi_key = " + key +
                    "\nagent_slug = garden\n");
  }

  StatusHome home_;
  std::unique_ptr<service::LocalService> service_;
};

TEST_F(StatusProgram, ExitStatusIsTheVerdict) {
  configure("key-of-the-test");
  EXPECT_EQ(runStatus("").status, 0);
  home_.setProcesses("1 00:01 PelmarCoworkWatcher\n2 00:01 PelmarCoworkWatcher\n");
  EXPECT_EQ(runStatus("").status, 2);
  home_.setProcesses("1 00:01 init\n");
  EXPECT_EQ(runStatus("").status, 1);
}

TEST_F(StatusProgram, BadArgumentsAreRefusedWithTheUsage) {
  const auto [output, status] = runStatus("--jsn");
  EXPECT_EQ(status, 64);
  EXPECT_THAT(output, StartsWith("usage: pelmar-cowork-status"));
}

TEST_F(StatusProgram, JsonIsOneObjectOnOneLine) {
  configure("key-of-the-test");
  const auto [output, status] = runStatus("--json");
  EXPECT_EQ(output.find('\n'), output.size() - 1);
  const auto object = parseJsonObject(output);
  ASSERT_TRUE(object);
  EXPECT_EQ(object->at("verdict"), "healthy");
  EXPECT_EQ(object->at("profile").at("api_key"), "****");
}

TEST_F(StatusProgram, ChangesAndSendsNothingUnlessAsked) {
  configure("key-of-the-test");
  home_.addTranscript("s1", "12345");
  home_.addRequest(1, "/x/", 200);
  const auto before = home_.everything();
  runStatus("");
  runStatus("--json");
  EXPECT_EQ(home_.everything(), before);
}

TEST_F(StatusProgram, CheckAsksTheServiceWhetherTheKeyIsAccepted) {
  configure("key-of-the-test");
  const auto good = runStatus("--check");
  EXPECT_EQ(good.status, 0);
  EXPECT_THAT(good.output, HasSubstr("Check     the service accepts the key (status 200)"));
  configure("another");
  const auto bad = runStatus("--check");
  EXPECT_EQ(bad.status, 1);
  EXPECT_THAT(bad.output, HasSubstr("the service refused the heartbeat (status 401)"));
}

TEST_F(StatusProgram, CheckResolvesADeviceEnrollment) {
  service_->registerDevice(
      {.token = "t",
       .tenant = "tenant",
       .process = "Cowork",
       .answer = {{"upload_api_key", "key-of-the-test"}, {"agent_slug", "from-device"}}});
  writeFile(
      home_.setup() + "/device-identity.json",
      json{{"device_token", "t"}, {"tenant_slug", "tenant"}, {"api_url", service_->url()}}.dump());
  EXPECT_THAT(runStatus("").output, HasSubstr("not device: not asked"));
  const auto checked = runStatus("--check");
  EXPECT_EQ(checked.status, 0);
  EXPECT_THAT(checked.output, HasSubstr("agent from-device"));
}

TEST_F(StatusProgram, ConfigFileIsCheckedBeforeItIsRolledOut) {
  writeFile(home_.path() + "/new", "[claude-cowork]\r\napi_url = http://a\r\n");
  const auto [output, status] = runStatus("--config " + home_.path() + "/new");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, HasSubstr("/new line 1: the line ends with CR LF"));
  EXPECT_THAT(output, ::testing::Not(HasSubstr("Agent ")));
}

TEST_F(StatusProgram, FollowRepeatsUntilItIsInterrupted) {
  configure("key-of-the-test");
  ChildProcess status({"/bin/sh", "-c", "exec " PELMAR_STATUS " --follow >&2"},
                      {"PELMAR_ROOT=" + home_.path()});
  ASSERT_TRUE(status.waitForLine("healthy"));
  ASSERT_TRUE(status.waitForLine("healthy"));
  home_.setProcesses("1 00:01 init\n");
  ASSERT_TRUE(status.waitForLine("not reporting"));
  status.kill(SIGINT);
  EXPECT_EQ(status.waitForExit(), -SIGINT);
}

TEST_F(StatusProgram, SeesTheRealAgentAndWhatItReported) {
  configure("key-of-the-test");
  home_.addTranscript("s1",
                      "{\"type\":\"user\",\"uuid\":\"1\",\"message\":{\"content\":\"hello\"}}\n");
  ChildProcess agent({PELMAR_AGENT, "--poll", "0.01", "--from-start", "--verbose"},
                     {"PELMAR_ROOT=" + home_.path()});
  writeFile(home_.path() + "/bin/ps", "#!/bin/sh\nexec /bin/ps -ww -o pid= -o etime= -o args= -p " +
                                          std::to_string(agent.pid()) + "\n");
  ASSERT_TRUE(
      service_->waitFor([&] { return !service_->steps().empty(); }, std::chrono::minutes(1)));
  // The cursor is saved behind the step: by the end of the next pass it is there.
  agent.skipLines();
  for (int mark = 0; mark < 2; ++mark) ASSERT_TRUE(agent.waitForLine("audit.jsonl files"));
  const auto [output, status] = runStatus("--json");
  const auto object = parseJsonObject(output);
  ASSERT_TRUE(object) << output;
  EXPECT_EQ(status, 0) << output;
  EXPECT_EQ(object->at("agents").at(0).at("from_start"), true);
  EXPECT_EQ(object->at("agents").at(0).at("poll"), 0.01);
  EXPECT_EQ(object->at("sessions").at("backlog"), 0);
  EXPECT_EQ(object->at("sessions").at("watched").at(0).at("run_kind"), "daily");
  EXPECT_EQ(object->at("sessions").at("watched").at(0).at("last_step"), 0);
}

}  // namespace
}  // namespace pelmar::test
