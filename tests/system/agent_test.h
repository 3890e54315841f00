#pragma once

// The built agent in a home of its own, reporting to the local service.

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/service_test.h"

namespace pelmar::test {

class AgentTest : public ServiceTest {
 protected:
  // Writes a config file whose section has this key, and the slug unless it is empty.
  void configure(const std::string& agentSlug, const std::string& key = kKey);

  // The same, for a service at `url`.
  void configureAt(const std::string& url, const std::string& agentSlug,
                   const std::string& key = kKey);

  // Enrolls the machine with the service, as the agent `slug`.
  void enrollDevice(const std::string& slug);

  // Always with --verbose, whose message marks the begin of a pass, and with passes in close order.
  // `environment` holds NAME=value, beside PELMAR_ROOT.
  std::unique_ptr<ChildProcess> startAgent(std::vector<std::string> switches = {},
                                           std::vector<std::string> environment = {});

  // Waits until a pass that began after this call is over, the cursor saved.
  static void waitForAnotherPass(ChildProcess& agent);

  // Waits until the service holds `count` steps; false when it does not within a minute.
  bool waitForSteps(std::size_t count);

  // In the order of arrival.
  std::vector<std::string> textsOfUserMessages();

  static constexpr std::chrono::seconds kPatience{60};
};

std::string userLine(const std::string& uuid, const std::string& text);

}  // namespace pelmar::test
