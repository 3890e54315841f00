#pragma once

// The agent on its way to the local service, with something between them.

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/network/own_network.h"
#include "tests/support/relay.h"
#include "tests/system/agent_test.h"

namespace pelmar::test {

class NetworkTest : public AgentTest {
 protected:
  // What an earlier test made of the names is over.
  NetworkTest();

  // Whatever happened, no key is in anything that the agent wrote.
  void TearDown() override;

  // An agent without a slug, so that a run is one request, with the transcripts from their start.
  ChildProcess& reportTo(const std::string& url, std::vector<std::string> environment = {});

  // The same with this slug.
  ChildProcess& reportAs(const std::string& slug, const std::string& url,
                         std::vector<std::string> environment = {});

  ChildProcess& agent() { return *agent_; }

  // Ends the agent and reads the activity log: <status> or <status> and the error, line by line.
  std::vector<std::string> outcomes();

  int servicePort() const;

 private:
  std::unique_ptr<ChildProcess> agent_;
};

// A service of one run and any number of steps answers with these.
inline constexpr const char* kRunAnswer = R"({"run_id":"r","workflow_id":"w"})";

}  // namespace pelmar::test
