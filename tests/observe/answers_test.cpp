// What becomes of an answer that arrives, and what is written down about it.

#include <unistd.h>

#include <string>
#include <utility>

#include "observe/observe_client.h"
#include "tests/support/service_test.h"

namespace pelmar {
namespace {

using test::IsJson;
using test::logOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class Answers : public test::ServiceTest {};

TEST(EndpointUrl, SlashesAroundTheBaseAreLost) {
  const struct {
    const char* base;
    const char* path;
    const char* url;
  } rows[] = {
      {"http://h", "/api/x/", "http://h/api/x/"},
      {"http://h/", "/api/x/", "http://h/api/x/"},
      {"http://h///", "/api/x/", "http://h/api/x/"},
      {"/http://h", "/api/x/", "http://h/api/x/"},
      {"//http://h//", "/api/x/", "http://h/api/x/"},
      {"http://h/base/", "/api/x/", "http://h/base/api/x/"},
      {"http://h/a//b/", "//x", "http://h/a//b//x"},
      {"///", "/x", "/x"},
      {"", "/x", "/x"},
  };
  for (const auto& row : rows) EXPECT_EQ(endpointUrl(row.base, row.path), row.url) << row.base;
}

TEST(Backoff, DoublesFromItsBase) {
  EXPECT_EQ(backoffAfter(1, 1.0), 1.0);
  EXPECT_EQ(backoffAfter(2, 1.0), 2.0);
  EXPECT_EQ(backoffAfter(3, 1.0), 4.0);
  EXPECT_EQ(backoffAfter(1, 0.25), 0.25);
  EXPECT_EQ(backoffAfter(2, 0.25), 0.5);
}

TEST(ObserveClientValue, HasTheDeadlineAndTheRetriesOfTheAgent) {
  const ObserveClient client("http://h", "k");
  EXPECT_EQ(client.apiUrl, "http://h");
  EXPECT_EQ(client.apiKey, "k");
  EXPECT_EQ(client.timeout, 30.0);
  EXPECT_EQ(client.maxAttempts, 3);
  EXPECT_EQ(client.backoffBase, 1.0);
}

TEST_F(Answers, ObjectOfASuccessIsAnsweredAndAnythingElseIsAnEmptyObject) {
  const struct {
    int status;
    const char* body;
    const char* object;
  } rows[] = {
      {200, R"({"run_id": "r", "n": [1, 2.0, null], "o": {"a": true}})",
       R"({"run_id": "r", "n": [1, 2.0, null], "o": {"a": true}})"},
      {200, "{}", "{}"},
      {201, "", "{}"},
      {200, "", "{}"},
      {202, R"({"a": 1})", R"({"a": 1})"},
      {299, R"({"a": 1})", R"({"a": 1})"},
      {200, "[1, 2]", "{}"},
      {200, R"([{"run_id": "r"}])", "{}"},
      {200, "7", "{}"},
      {200, "null", "{}"},
      {200, "\"text\"", "{}"},
      {200, "not JSON", "{}"},
      {200, R"({"run_id": "r")", "{}"},
      {200, " \n", "{}"},
      {200, "\xFF\xFE", "{}"},
  };
  for (const auto& row : rows) {
    service_->script("/x", service::answerWith(row.status, row.body), 1);
    const auto log = logOf([&] {
      const auto answer = client().post("/x", {{"a", 1}}, "");
      ASSERT_TRUE(answer) << row.status << row.body;
      EXPECT_THAT(*answer, IsJson(row.object)) << row.status << row.body;
    });
    EXPECT_THAT(log, IsEmpty());
    EXPECT_EQ(activity().back().at("status"), row.status);
    EXPECT_EQ(activity().back().at("bytes"), std::string(row.body).size());
    EXPECT_FALSE(activity().back().contains("error"));
  }
  EXPECT_THAT(paths(), SizeIs(std::size(rows)));
  EXPECT_THAT(activity(), SizeIs(std::size(rows)));
}

TEST_F(Answers, RefusedRequestIsNotTriedAgainAndLogged) {
  for (const int status : {400, 401, 403, 404, 407, 408, 417, 429, 499}) {
    const std::string path = "/refused/" + std::to_string(status) + "/";
    service_->script(path, service::answerWith(status, R"({"run_id": "r"})"));
    const auto log = logOf([&] { EXPECT_FALSE(client().post(path, json::object(), "")); });
    EXPECT_THAT(log, ElementsAre("error cowork-watcher.client 4xx " + std::to_string(status) +
                                 " on " + path + " — non-retryable"));
    EXPECT_THAT(bodies(path), SizeIs(1)) << status;
    EXPECT_EQ(activity().back().at("status"), status);
    EXPECT_EQ(activity().back().at("bytes"), 15);
    EXPECT_FALSE(activity().back().contains("error"));
  }
  EXPECT_THAT(activity(), SizeIs(9));
}

TEST_F(Answers, OtherStatusesAreTriedAgainAndTheLastFailureIsNotLogged) {
  for (const int status : {300, 301, 304, 307, 399, 500, 502, 503, 599}) {
    const std::string path = "/again/" + std::to_string(status) + "/";
    service_->script(path, service::answerWith(status, ""));
    const auto before = activity().size();
    const auto log = logOf([&] { EXPECT_FALSE(client().post(path, json::object(), "")); });
    EXPECT_THAT(log, IsEmpty()) << status;
    EXPECT_THAT(bodies(path), SizeIs(3)) << status;
    ASSERT_EQ(activity().size(), before + 3) << status;
    for (auto i = before; i < before + 3; ++i) {
      EXPECT_EQ(activity()[i].at("status"), status);
      EXPECT_FALSE(activity()[i].contains("error")) << status;
    }
  }
}

TEST_F(Answers, ThreeUnavailableAnswersAreThreeActivityLinesAndNone) {
  service_->script("/x", service::answerWith(503, R"({"run_id": "r"})"));
  const auto log = logOf([&] { EXPECT_FALSE(client().post("/x", json::object(), "2 steps")); });
  EXPECT_THAT(log, IsEmpty());
  ASSERT_THAT(activity(), SizeIs(3));
  for (const json& line : activity()) {
    EXPECT_EQ(line.at("status"), 503);
    EXPECT_EQ(line.at("bytes"), 15);
    EXPECT_EQ(line.at("summary"), "2 steps");
  }
}

TEST_F(Answers, RefusalAfterAnotherFailureEndsTheAttempts) {
  service_->script("/x", service::answerWith(500), 1);
  service_->script("/x", service::answerWith(404));
  const auto log = logOf([&] { EXPECT_FALSE(client().post("/x", json::object(), "")); });
  EXPECT_THAT(log, ElementsAre("error cowork-watcher.client 4xx 404 on /x — non-retryable"));
  EXPECT_THAT(activity(), SizeIs(2));
}

TEST_F(Answers, SuccessAfterFailuresIsAnswered) {
  service_->script("/x", service::answerWith(503), 1);
  service_->script("/x", service::dropAfterRequest(), 1);
  accept("/x", R"({"run_id": "r"})");
  const auto log = logOf([&] {
    const auto answer = client().post("/x", {{"a", "b"}}, "");
    ASSERT_TRUE(answer);
    EXPECT_THAT(*answer, IsJson(R"({"run_id": "r"})"));
  });
  EXPECT_THAT(log, IsEmpty());
  EXPECT_THAT(bodies("/x"), ElementsAre(IsJson(R"({"a": "b"})"), IsJson(R"({"a": "b"})"),
                                        IsJson(R"({"a": "b"})")));
}

TEST_F(Answers, EveryRequestIsAPostWithTheKeyAndTheTypeOfItsBodyOnly) {
  service_->script("/x/", service::answerWith(503), 2);
  client().post("/x/", {{"a", "é/😀"}, {"b", json::array()}}, "");
  const auto requests = service_->requests();
  ASSERT_THAT(requests, SizeIs(3));
  for (const auto& [request, status] : requests) {
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/x/");
    EXPECT_THAT(json::parse(request.body), IsJson(R"({"a": "é/😀", "b": []})"));
    EXPECT_EQ(request.body.find(' '), std::string::npos);
    EXPECT_EQ(request.body, requests.front().request.body);
    EXPECT_THAT(
        request.headers,
        UnorderedElementsAre(Pair("Host", service_->url().substr(7)), Pair("X-Pel-Key", kKey),
                             Pair("Content-Type", "application/json"),
                             Pair("Content-Length", std::to_string(request.body.size()))));
  }
}

TEST_F(Answers, LargeBodyIsSentWithoutFurtherHeaders) {
  accept("/x");
  const std::string text(3 * 1024 * 1024, 'a');
  ASSERT_TRUE(client().post("/x", {{"text", text}}, ""));
  const auto requests = service_->requests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_THAT(requests.front().request.headers, SizeIs(4));
  EXPECT_EQ(json::parse(requests.front().request.body).at("text"), text);
}

TEST_F(Answers, BaseUrlMayHaveAPathAndSlashesAroundIt) {
  accept("/");
  auto client = this->client();
  const std::pair<std::string, std::string> around[] = {
      {"", "/"}, {"", "///"}, {"/", ""}, {"//", "//"}};
  for (const auto& [before, behind] : around) {
    client.apiUrl = before + service_->url() + behind;
    ASSERT_TRUE(client.post("/api/x/", json::object(), "")) << client.apiUrl;
    EXPECT_EQ(activity().back().at("url"), service_->url() + "/api/x/");
  }
  client.apiUrl = service_->url() + "/base/";
  ASSERT_TRUE(client.post("/api/x/", json::object(), ""));
  EXPECT_THAT(paths(), ElementsAre("/api/x/", "/api/x/", "/api/x/", "/api/x/", "/base/api/x/"));
  EXPECT_EQ(activity().back().at("url"), service_->url() + "/base/api/x/");
}

TEST_F(Answers, ActivityLineTellsAllOfTheExchange) {
  constexpr std::chrono::milliseconds kDelay(30);
  service_->script("/api/v1/observe/runs/daily/", service::answerLate(kDelay), 1);
  ASSERT_TRUE(client().post("/api/v1/observe/runs/daily/",
                            {{"agent_slug", "s"}, {"agent_type", "t"}}, "3 steps"));
  ASSERT_THAT(activity(), SizeIs(1));
  json line = activity().front();
  ASSERT_TRUE(line.at("ms").is_number_integer());
  EXPECT_GE(line.at("ms"), kDelay.count());
  EXPECT_THAT(line.at("ts").get<std::string>(),
              testing::MatchesRegex("20..-..-..T..:..:..[.]...Z"));
  for (const char* key : {"ms", "ts", "bytes"}) line.erase(key);
  EXPECT_EQ(line, json({{"daemon", "cowork-watcher"},
                        {"pid", ::getpid()},
                        {"method", "POST"},
                        {"url", service_->url() + "/api/v1/observe/runs/daily/"},
                        {"status", 200},
                        {"summary", "3 steps"}}));
}

TEST_F(Answers, ActivityLineWithoutASummaryHasNoKeyForIt) {
  accept("/x");
  ASSERT_TRUE(client().post("/x", json::object(), ""));
  EXPECT_FALSE(activity().front().contains("summary"));
}

}  // namespace
}  // namespace pelmar
