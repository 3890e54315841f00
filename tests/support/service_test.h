#pragma once

// The local service and the agent's client in one process, and what both sides tell of it.

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "observe/observe_client.h"
#include "platform/json.h"
#include "service/local_service.h"
#include "tests/support/temp_root.h"

namespace pelmar::test {

// Equal to JSON text in all but spaces and the order of keys; 1 and 1.0 differ.
MATCHER_P(IsJson, text, "is " + std::string(text)) {
  return arg.dump() == json::parse(text).dump();
}

class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest();

  // Pauses hardly at all between its attempts.
  ObserveClient client() const;

  // Every request to a path that begins with `prefix` is answered 200 and `body`.
  void accept(const std::string& prefix, const std::string& body = "{}");

  // In the order of arrival: the paths of all requests, and the bodies of those to `path`.
  std::vector<std::string> paths();
  std::vector<json> bodies(const std::string& path);

  // The lines of the activity log.
  std::vector<json> activity() const;

  static constexpr const char* kKey = "key-of-the-test";
  // What the registry tool below the root answers, in every test: it is asked once a process.
  static constexpr const char* kHardwareUuid = "HW-1";

  TempRoot root_;
  std::unique_ptr<service::LocalService> service_;
};

// What `action` logs, line by line without the time: "<level> <category> <text>".
std::vector<std::string> logOf(const std::function<void()>& action);

}  // namespace pelmar::test
