#include "tests/service/fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "service/database.h"

namespace pelmar::service {

Client::Client(const std::string& url) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
  const std::string port = url.substr(url.rfind(':') + 1);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
  EXPECT_EQ(::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

Client::~Client() { ::close(socket_); }

void Client::send(const std::string& bytes) { ::send(socket_, bytes.data(), bytes.size(), 0); }

std::string Client::readUntil(const std::string& text) {
  std::string all;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((text.empty() || all.find(text) == std::string::npos) &&
         (count = ::recv(socket_, buffer.data(), buffer.size(), 0)) > 0) {
    all.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return all;
}

std::string Client::readToEnd() { return readUntil(""); }

std::string requestTo(const std::string& url, const std::string& method, const std::string& target,
                      const std::string& body, const std::string& headers) {
  return method + " " + target + " HTTP/1.1\r\nHost: " + url.substr(url.rfind('/') + 1) + "\r\n" +
         headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

json stepNumbered(int position) {
  return {{"step_name", "cowork:assistant"},
          {"position", position},
          {"output",
           {{"kind", "assistant"},
            {"timestamp", "2026-01-31T10:00:00Z"},
            {"source", "cowork-audit"},
            {"session_id", "S1"},
            {"hardware_uuid", "H1"},
            {"text", "hello"}}}};
}

json stepsBody(int count) {
  json steps = json::array();
  for (int position = 0; position < count; ++position) steps.push_back(stepNumbered(position));
  return {{"steps", steps}, {"hardware_uuid", "H1"}};
}

json llmCall() {
  return {{"model", "m"},     {"tokens_in", 30},       {"tokens_out", 4},         {"cost", 0.0},
          {"task", "cowork"}, {"prompt_preview", "p"}, {"response_preview", "rr"}};
}

ServiceTest::ServiceTest() { restart(); }

void ServiceTest::restart() {
  service_.reset();
  std::string error;
  service_ = LocalService::start({.database = file("service.db"),
                                  .key = kKey,
                                  .now = [this] { return now_; },
                                  .remembersRequests = true},
                                 error);
  EXPECT_NE(service_, nullptr) << error;
}

void ServiceTest::refuseRows(const std::string& table, const std::string& condition) {
  service_.reset();
  Database database(file("service.db"));
  EXPECT_TRUE(database.execute(("CREATE TRIGGER refuse_" + table + " BEFORE INSERT ON " + table +
                                " WHEN " + condition + " BEGIN SELECT raise(ABORT, 'no'); END")
                                   .c_str()))
      << database.lastError();
  restart();
}

std::string ServiceTest::requestText(const std::string& method, const std::string& target,
                                     const std::string& body, const std::string& headers) {
  return requestTo(service_->url(), method, target, body, headers);
}

Answer ServiceTest::exchange(const std::string& text) {
  Client client(service_->url());
  client.send(text);
  const std::string all = client.readToEnd();
  const std::size_t headEnd = all.find("\r\n\r\n");
  if (all.rfind("HTTP/1.1 ", 0) != 0 || headEnd == std::string::npos) return {};
  return {std::stoi(all.substr(9, 3)), all.substr(0, headEnd + 2), all.substr(headEnd + 4)};
}

std::string ServiceTest::keyHeader() {
  return std::string("X-Pel-Key: ") + kKey + "\r\nConnection: close\r\n";
}

Answer ServiceTest::post(const std::string& path, const json& body) {
  return exchange(requestText("POST", path, compactJson(body), keyHeader()));
}

Answer ServiceTest::get(const std::string& target) {
  return exchange(requestText("GET", target, "", keyHeader()));
}

std::string ServiceTest::newRun() {
  const Answer answer = post("/api/v1/observe/runs/daily/",
                             {{"agent_slug", "agent"}, {"agent_type", "claude-cowork"}});
  EXPECT_EQ(answer.status, 200) << answer.body;
  return textAt(answer.value(), "run_id");
}

std::string ServiceTest::stepsPath(const std::string& runId) {
  return "/api/v1/observe/runs/" + runId + "/steps/";
}

}  // namespace pelmar::service
