#include "tests/system/agent_test.h"

namespace pelmar::test {

void AgentTest::configure(const std::string& agentSlug, const std::string& key) {
  configureAt(service_->url(), agentSlug, key);
}

void AgentTest::configureAt(const std::string& url, const std::string& agentSlug,
                            const std::string& key) {
  std::string config = "[claude-cowork]\napi_url = " + url + "\napi_key = " + key + "\n";
  if (!agentSlug.empty()) config += "agent_slug = " + agentSlug + "\n";
  writeFile(root_.home() + "/.pelmar/config", config);
}

void AgentTest::enrollDevice(const std::string& slug) {
  service_->registerDevice({.token = "token-of-device",
                            .tenant = "tenant",
                            .process = "Cowork",
                            .answer = {{"upload_api_key", kKey}, {"agent_slug", slug}}});
  const json identity = {
      {"device_token", "token-of-device"}, {"tenant_slug", "tenant"}, {"api_url", service_->url()}};
  writeFile(root_.setup() + "/device-identity.json", identity.dump());
}

std::unique_ptr<ChildProcess> AgentTest::startAgent(std::vector<std::string> switches,
                                                    std::vector<std::string> environment) {
  std::vector<std::string> command = {PELMAR_AGENT, "--poll", "0.01", "--verbose"};
  command.insert(command.end(), switches.begin(), switches.end());
  environment.push_back("PELMAR_ROOT=" + root_.path());
  return std::make_unique<ChildProcess>(command, environment);
}

void AgentTest::waitForAnotherPass(ChildProcess& agent) {
  agent.skipLines();
  // The first mark ends the pass that was under way, the second a whole one.
  for (int mark = 0; mark < 2; ++mark) ASSERT_TRUE(agent.waitForLine("audit.jsonl files"));
}

bool AgentTest::waitForSteps(std::size_t count) {
  return service_->waitFor([&] { return service_->steps().size() >= count; }, kPatience);
}

std::vector<std::string> AgentTest::textsOfUserMessages() {
  std::vector<std::string> texts;
  for (const json& step : service_->steps()) {
    if (step.at("kind") == "user_message") texts.push_back(step.at("output").at("text"));
  }
  return texts;
}

std::string userLine(const std::string& uuid, const std::string& text) {
  return R"({"type":"user","uuid":")" + uuid + R"(","session_id":"s","message":{"content":")" +
         text + "\"}}\n";
}

}  // namespace pelmar::test
