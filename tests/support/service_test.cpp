#include "tests/support/service_test.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace pelmar::test {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

ServiceTest::ServiceTest() {
  writeFile(root_.ioreg(),
            std::string("#!/bin/sh\necho '  \"IOPlatformUUID\" = \"") + kHardwareUuid + "\"'\n");
  makeExecutable(root_.ioreg());
  std::string error;
  service::LocalServiceOptions options;
  options.database = root_.path() + "/service.db";
  options.key = kKey;
  options.remembersRequests = true;
  service_ = service::LocalService::start(std::move(options), error);
  if (!service_) throw std::runtime_error(error);
}

ObserveClient ServiceTest::client() const {
  ObserveClient client(service_->url(), kKey);
  client.backoffBase = 0.001;
  return client;
}

void ServiceTest::accept(const std::string& prefix, const std::string& body) {
  service_->script(prefix + "*", service::answerWith(200, body));
}

std::vector<std::string> ServiceTest::paths() {
  std::vector<std::string> paths;
  for (const auto& received : service_->requests()) paths.push_back(received.request.path);
  return paths;
}

std::vector<json> ServiceTest::bodies(const std::string& path) {
  std::vector<json> bodies;
  for (const auto& received : service_->requests()) {
    if (received.request.path == path) bodies.push_back(json::parse(received.request.body));
  }
  return bodies;
}

std::vector<json> ServiceTest::activity() const {
  std::vector<json> records;
  if (!std::filesystem::exists(root_.activityLog())) return records;
  for (const auto& line : linesOf(contentOf(root_.activityLog()))) {
    records.push_back(json::parse(line));
  }
  return records;
}

std::vector<std::string> logOf(const std::function<void()>& action) {
  ::testing::internal::CaptureStderr();
  action();
  auto lines = linesOf(::testing::internal::GetCapturedStderr());
  for (std::string& line : lines) line.erase(0, line.find(' ') + 1);
  return lines;
}

}  // namespace pelmar::test
