// Requests that get no answer, or none that counts as one.

#include <chrono>
#include <string>

#include "observe/observe_client.h"
#include "tests/support/refusing_port.h"
#include "tests/support/service_test.h"

namespace pelmar {
namespace {

using test::IsJson;
using test::logOf;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* kPath = "/api/v1/observe/runs/start/";
constexpr const char* kTransportFailure =
    "error cowork-watcher.client transport failure after 3 attempts: /api/v1/observe/runs/start/";

MATCHER(IsTransportError, "is the activity line of a failed transfer") {
  return arg.at("status") == 0 && arg.at("bytes") == 0 && arg.contains("error") &&
         arg.at("error").is_string() && !arg.at("error").template get<std::string>().empty();
}

MATCHER(IsPassedDeadline, "is the activity line of a passed deadline") {
  return arg.at("status") == 0 && arg.at("bytes") == 0 && !arg.contains("error");
}

class Failures : public test::ServiceTest {
 protected:
  std::vector<std::string> logOfNone(const ObserveClient& client) {
    return logOf([&] { EXPECT_FALSE(client.post(kPath, {{"a", 1}}, "3 steps")); });
  }
};

TEST_F(Failures, TransportErrorsAreTriedAgainAndTheLastIsLoggedWithThePath) {
  const service::Script scripts[] = {
      service::dropAfterRequest(), service::dropBeforeBody(), service::answerHalf(),
      service::answerRaw("no HTTP at all\r\n\r\n"), service::storeAndDrop()};
  for (const auto& script : scripts) {
    service_->clearScripts();
    service_->script("*", script);
    const auto before = service_->requests().size();
    EXPECT_THAT(logOfNone(client()), ElementsAre(kTransportFailure));
    EXPECT_EQ(service_->requests().size(), before + 3);
  }
  EXPECT_THAT(activity(), AllOf(SizeIs(15), Each(IsTransportError())));
  for (const json& line : activity()) EXPECT_EQ(line.at("summary"), "3 steps");
}

TEST_F(Failures, RefusedConnectionsAreTransportErrors) {
  const test::RefusingPort port;
  auto client = this->client();
  client.apiUrl = port.url();
  EXPECT_THAT(logOfNone(client), ElementsAre(kTransportFailure));
  EXPECT_THAT(activity(), AllOf(SizeIs(3), Each(IsTransportError())));
}

TEST_F(Failures, HalfOfARefusalIsATransportErrorToo) {
  auto half = service::answerHalf();
  half.reply.status = 404;
  service_->script(kPath, half);
  EXPECT_THAT(logOfNone(client()), ElementsAre(kTransportFailure));
  EXPECT_THAT(activity(), AllOf(SizeIs(3), Each(IsTransportError())));
}

TEST_F(Failures, RequestLostOnAKeptConnectionIsOneAttempt) {
  accept("/kept");
  const auto client = this->client();
  ASSERT_TRUE(client.post("/kept", json::object(), ""));
  service_->script(kPath, service::dropAfterRequest(), 1);
  accept(kPath);
  ASSERT_TRUE(client.post(kPath, json::object(), ""));
  EXPECT_THAT(paths(), ElementsAre("/kept", kPath, kPath));
  ASSERT_THAT(activity(), SizeIs(3));
  EXPECT_THAT(activity()[1], IsTransportError());
  EXPECT_EQ(activity()[2].at("status"), 200);
}

TEST_F(Failures, UrlsWithoutASchemeOrWithAnotherAreTransportErrors) {
  for (const char* base :
       {"localhost/base", "host", "ftp://127.0.0.1", "file:///etc", "/", "///"}) {
    const auto before = activity().size();
    auto client = this->client();
    client.apiUrl = base;
    EXPECT_THAT(logOfNone(client), ElementsAre(kTransportFailure)) << base;
    ASSERT_EQ(activity().size(), before + 3) << base;
    EXPECT_THAT(activity().back(), IsTransportError()) << base;
  }
}

TEST_F(Failures, ActivityLineOfAUrlWithoutASchemeHoldsIt) {
  auto client = this->client();
  client.apiUrl = "localhost/base/";
  logOfNone(client);
  EXPECT_EQ(activity().front().at("url"), "localhost/base/api/v1/observe/runs/start/");
}

TEST_F(Failures, TextThatIsNoUrlIsNoneWithoutATrace) {
  for (const char* base : {"http://a b", "not a url", "http://[::1", "<url>"}) {
    auto client = this->client();
    client.apiUrl = base;
    EXPECT_THAT(logOfNone(client), IsEmpty()) << base;
  }
  EXPECT_THAT(activity(), IsEmpty());
}

TEST_F(Failures, WithoutUrlOrKeyNothingHappens) {
  auto client = this->client();
  client.apiUrl = "";
  EXPECT_THAT(logOfNone(client), IsEmpty());
  client = this->client();
  client.apiKey = "";
  EXPECT_THAT(logOfNone(client), IsEmpty());
  EXPECT_THAT(activity(), IsEmpty());
  EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(Failures, PassedDeadlinesAreTriedAgainWithNeitherErrorNorMessage) {
  service_->script(kPath, service::neverAnswer());
  auto client = this->client();
  client.timeout = -4.8;  // the wait lasts 5 s longer
  EXPECT_THAT(logOfNone(client), IsEmpty());
  EXPECT_THAT(bodies(kPath), SizeIs(3));
  EXPECT_THAT(activity(), AllOf(SizeIs(3), Each(IsPassedDeadline())));
  for (const json& line : activity()) {
    EXPECT_GE(line.at("ms"), 190);  // timers may be a little early
    EXPECT_EQ(line.at("summary"), "3 steps");
  }
}

TEST_F(Failures, AnswerBehindTheDeadlineIsNotTaken) {
  service_->script(kPath, service::answerLate(std::chrono::seconds(10)));
  auto client = this->client();
  client.timeout = -4.8;
  client.maxAttempts = 1;
  EXPECT_THAT(logOfNone(client), IsEmpty());
  EXPECT_THAT(activity(), ElementsAre(IsPassedDeadline()));
}

TEST_F(Failures, AttemptAfterAPassedDeadlineMaySucceed) {
  service_->script(kPath, service::neverAnswer(), 1);
  accept(kPath, R"({"run_id": "r"})");
  auto client = this->client();
  client.timeout = -3;
  const auto answer = client.post(kPath, json::object(), "");
  ASSERT_TRUE(answer);
  EXPECT_THAT(*answer, IsJson(R"({"run_id": "r"})"));
  ASSERT_THAT(activity(), SizeIs(2));
  EXPECT_THAT(activity()[0], IsPassedDeadline());
  EXPECT_EQ(activity()[1].at("status"), 200);
}

TEST_F(Failures, RedirectsAreTriedAgainAndNotFollowed) {
  std::string error;
  service::LocalServiceOptions options{.database = root_.path() + "/target.db", .key = kKey};
  options.remembersRequests = true;
  const auto target = service::LocalService::start(std::move(options), error);
  ASSERT_TRUE(target) << error;
  for (const int status : {301, 302, 303, 307, 308}) {
    service_->clearScripts();
    service_->script(kPath, service::redirectTo(target->url() + kPath, status), 1);
    service_->script(kPath, service::redirectTo("/elsewhere/", status));
    const auto before = activity().size();
    EXPECT_THAT(logOfNone(client()), IsEmpty()) << status;
    ASSERT_EQ(activity().size(), before + 3);
    EXPECT_EQ(activity().back().at("status"), status);
    EXPECT_EQ(activity().back().at("url"), service_->url() + kPath);
  }
  EXPECT_THAT(paths(), AllOf(SizeIs(15), Each(kPath)));
  EXPECT_THAT(target->requests(), IsEmpty());
}

TEST_F(Failures, AttemptsAreAsManyAsTheClientSays) {
  for (const int attempts : {1, 2, 3, 5}) {
    service_->clearScripts();
    service_->script(kPath, service::dropAfterRequest());
    auto client = this->client();
    client.maxAttempts = attempts;
    const auto before = activity().size();
    EXPECT_THAT(logOfNone(client),
                ElementsAre("error cowork-watcher.client transport failure after " +
                            std::to_string(attempts) + " attempts: " + kPath));
    EXPECT_EQ(activity().size() - before, attempts);
  }
}

TEST_F(Failures, MessageIsLoggedOnlyWhenTheLastAttemptIsTheTransportError) {
  service_->script(kPath, service::dropAfterRequest(), 2);
  service_->script(kPath, service::answerWith(500));
  EXPECT_THAT(logOfNone(client()), IsEmpty());
  service_->clearScripts();
  service_->script(kPath, service::answerWith(500), 2);
  service_->script(kPath, service::dropAfterRequest());
  EXPECT_THAT(logOfNone(client()), ElementsAre(kTransportFailure));
}

TEST_F(Failures, PausesGrowBetweenTheAttempts) {
  service_->script(kPath, service::answerWith(503));
  auto client = this->client();
  client.backoffBase = 0.05;
  const auto begin = std::chrono::steady_clock::now();
  logOfNone(client);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
}

TEST_F(Failures, NoPauseFollowsTheLastAttempt) {
  auto client = this->client();
  client.maxAttempts = 1;
  client.backoffBase = 86400;
  service_->script(kPath, service::answerWith(503), 1);
  service_->script(kPath, service::dropAfterRequest());
  logOfNone(client);
  logOfNone(client);
  EXPECT_THAT(activity(), SizeIs(2));
}

TEST_F(Failures, KeyThatWouldSmuggleInHeadersIsNotSent) {
  auto client = this->client();
  client.apiKey = "k\r\nX-Smuggled: 1";
  EXPECT_THAT(logOfNone(client), ElementsAre(kTransportFailure));
  EXPECT_THAT(paths(), IsEmpty());
  for (const json& line : activity()) {
    EXPECT_THAT(line.at("error").get<std::string>(), Not(testing::HasSubstr("Smuggled")));
  }
}

// Without a service, whose threads a forked child would lack.
TEST(FailuresDeathTest, NoAttemptsAtAllEndTheProcess) {
  const test::TempRoot root;
  const test::RefusingPort port;
  ObserveClient client(port.url(), "k");
  for (const int attempts : {0, -1}) {
    client.maxAttempts = attempts;
    EXPECT_DEATH(client.post(kPath, json::object(), ""), "Fatal error");
  }
  client.apiKey = "";
  EXPECT_FALSE(client.post(kPath, json::object(), ""));
}

}  // namespace
}  // namespace pelmar
