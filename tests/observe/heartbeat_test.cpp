// The heartbeat: one request, whose only outcome is whether the service refused it.

#include <string>

#include "observe/observe_client.h"
#include "platform/host_name.h"
#include "tests/support/refusing_port.h"
#include "tests/support/service_test.h"

namespace pelmar {
namespace {

using test::logOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr const char* kPath = "/api/v1/observe/agents/garden/heartbeat/";

class HeartbeatRequest : public test::ServiceTest {
 protected:
  // Whatever comes of it, a heartbeat leaves no line in either log.
  void expectHeartbeat(const ObserveClient& client, bool expected) {
    EXPECT_THAT(logOf([&] { EXPECT_EQ(client.heartbeat("garden"), expected); }), IsEmpty());
    EXPECT_THAT(activity(), IsEmpty());
  }
};

TEST_F(HeartbeatRequest, NamesItsSourceAndTheMachine) {
  expectHeartbeat(client(), true);
  EXPECT_THAT(bodies(kPath),
              ElementsAre(json({{"source", "watcher"}, {"machine_id", hostName()}})));
  const auto request = service_->requests().front().request;
  EXPECT_EQ(request.method, "POST");
  EXPECT_THAT(request.headers,
              UnorderedElementsAre(Pair("Host", service_->url().substr(7)), Pair("X-Pel-Key", kKey),
                                   Pair("Content-Type", "application/json"),
                                   Pair("Content-Length", std::to_string(request.body.size()))));
  EXPECT_THAT(service_->heartbeats(), SizeIs(1));
}

TEST_F(HeartbeatRequest, StatusesFromFourHundredOnAreRefusals) {
  const struct {
    int status;
    bool isTaken;
  } rows[] = {{200, true},  {204, true},  {299, true},  {300, true},  {307, true},  {399, true},
              {400, false}, {401, false}, {404, false}, {499, false}, {500, false}, {599, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.status);
    service_->script(kPath, service::answerWith(row.status), 1);
    expectHeartbeat(client(), row.isTaken);
  }
  EXPECT_THAT(paths(), SizeIs(std::size(rows)));
}

TEST_F(HeartbeatRequest, WrongKeyIsRefused) {
  auto client = this->client();
  client.apiKey = "another";
  expectHeartbeat(client, false);
}

TEST_F(HeartbeatRequest, FailedTransfersCountAsTakenAndAreNotTriedAgain) {
  const service::Script scripts[] = {service::dropAfterRequest(), service::dropBeforeBody(),
                                     service::storeAndDrop(),
                                     service::answerRaw("no HTTP at all\r\n\r\n")};
  for (const auto& script : scripts) {
    service_->clearScripts();
    service_->script(kPath, script);
    expectHeartbeat(client(), true);
  }
  EXPECT_THAT(paths(), SizeIs(std::size(scripts)));
}

TEST_F(HeartbeatRequest, UnreachableServiceCountsAsTaken) {
  const test::RefusingPort port;
  auto client = this->client();
  client.apiUrl = port.url();
  expectHeartbeat(client, true);
}

TEST_F(HeartbeatRequest, ServiceThatDoesNotAnswerInTimeCountsAsRefusal) {
  service_->script(kPath, service::neverAnswer());
  auto client = this->client();
  client.timeout = 86400;  // not the heartbeat's
  expectHeartbeat(client, false);
  EXPECT_THAT(paths(), ElementsAre(kPath));
}

TEST_F(HeartbeatRequest, DeadlineOfTheOtherRequestsIsNotItsOwn) {
  service_->script(kPath, service::answerLate(std::chrono::milliseconds(300)));
  auto client = this->client();
  client.timeout = -4.9;
  expectHeartbeat(client, true);
}

TEST_F(HeartbeatRequest, AttemptsOfTheOtherRequestsAreNotItsOwn) {
  service_->script(kPath, service::answerWith(503));
  auto client = this->client();
  client.maxAttempts = 0;
  expectHeartbeat(client, false);
  EXPECT_THAT(paths(), ElementsAre(kPath));
}

TEST_F(HeartbeatRequest, SlashesAroundTheBaseAreLost) {
  auto client = this->client();
  client.apiUrl = "/" + service_->url() + "//";
  expectHeartbeat(client, true);
  EXPECT_THAT(paths(), ElementsAre(kPath));
}

TEST_F(HeartbeatRequest, TextThatIsNoUrlCountsAsRefusal) {
  auto client = this->client();
  client.apiUrl = "not a url";
  expectHeartbeat(client, false);
  client = this->client();
  EXPECT_FALSE(client.heartbeat("a b"));
  EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(HeartbeatRequest, EmptyUrlIsTriedAndCountsAsTaken) {
  auto client = this->client();
  client.apiUrl = "";
  expectHeartbeat(client, true);
}

TEST_F(HeartbeatRequest, EmptyKeyIsTried) {
  auto client = this->client();
  client.apiKey = "";
  expectHeartbeat(client, false);
  EXPECT_THAT(paths(), ElementsAre(kPath));
}

TEST_F(HeartbeatRequest, SlugStandsInThePathAsItIs) {
  accept("/");
  EXPECT_TRUE(client().heartbeat("a%2Fb/c"));
  EXPECT_EQ(service_->requests().front().request.target,
            "/api/v1/observe/agents/a%2Fb/c/heartbeat/");
}

}  // namespace
}  // namespace pelmar
