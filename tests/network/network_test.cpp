#include "tests/network/network_test.h"

#include <filesystem>
#include <sstream>

#include "platform/json.h"

namespace pelmar::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

}  // namespace

NetworkTest::NetworkTest() {
  if (!isOwnNetwork()) return;
  setHosts("");
  setResolver("");
}

void NetworkTest::TearDown() {
  if (!agent_) return;
  agent_->kill(SIGKILL);
  agent_->waitForExit();
  for (const auto& line : agent_->lines()) EXPECT_THAT(line, Not(HasSubstr(kKey)));
  const fs::path config = root_.home() + "/.pelmar/config";
  for (const auto& entry : fs::recursive_directory_iterator(root_.home() + "/.pelmar")) {
    if (!entry.is_regular_file() || entry.path() == config) continue;
    EXPECT_THAT(contentOf(entry.path()), Not(HasSubstr(kKey))) << entry.path();
  }
}

ChildProcess& NetworkTest::reportTo(const std::string& url, std::vector<std::string> environment) {
  return reportAs("", url, std::move(environment));
}

ChildProcess& NetworkTest::reportAs(const std::string& slug, const std::string& url,
                                    std::vector<std::string> environment) {
  configureAt(url, slug);
  agent_ = startAgent({"--from-start"}, std::move(environment));
  return *agent_;
}

std::vector<std::string> NetworkTest::outcomes() {
  agent_->kill(SIGKILL);
  agent_->waitForExit();
  std::istringstream log(contentOf(root_.activityLog()));
  std::vector<std::string> outcomes;
  for (std::string line; std::getline(log, line);) {
    const json record = json::parse(line);
    const std::string error = record.value("error", "");
    outcomes.push_back(std::to_string(record.at("status").get<int>()) +
                       (error.empty() ? "" : " " + error));
  }
  return outcomes;
}

int NetworkTest::servicePort() const {
  const auto url = service_->url();
  return std::stoi(url.substr(url.rfind(':') + 1));
}

}  // namespace pelmar::test
