#include "service/scripts.h"

#include <thread>

#include "tests/service/fixture.h"

namespace pelmar::service {
namespace {

class ScriptTest : public ServiceTest {
 protected:
  // What the client reads when it sends one step.
  std::string rawAnswer() {
    Client client(service_->url());
    client.send(requestText("POST", path_, compactJson(stepsBody(1)), keyHeader()));
    return client.readToEnd();
  }

  std::string path_ = stepsPath(newRun());
};

TEST_F(ScriptTest, AnswersTheScriptedStatusSomeTimesAndThenAsUsual) {
  service_->script(path_, answerWith(503, R"({"error":"busy"})"), 2);
  EXPECT_EQ(post(path_, stepsBody(1)).status, 503);
  EXPECT_EQ(post(path_, stepsBody(1)).body, R"({"error":"busy"})");
  EXPECT_TRUE(service_->steps().empty());
  EXPECT_EQ(post(path_, stepsBody(1)).status, 200);
  EXPECT_EQ(service_->steps().size(), 1U);
  EXPECT_EQ(service_->storedRequests()[2]["status"], 503);
}

TEST_F(ScriptTest, TakesTheOldestScriptWithTimesLeft) {
  service_->script("/api/v1/*", answerWith(500), 1);
  service_->script("*", answerWith(502));
  EXPECT_EQ(post(path_, stepsBody(1)).status, 500);
  EXPECT_EQ(post(path_, stepsBody(1)).status, 502);
  EXPECT_EQ(get("/elsewhere").status, 502);
  EXPECT_EQ(get("/api/local/summary").status, 200);
  service_->clearScripts();
  EXPECT_EQ(post(path_, stepsBody(1)).status, 200);
}

TEST_F(ScriptTest, LeavesOtherPathsAlone) {
  service_->script("/api/v1/observe/runs/daily", answerWith(500));
  EXPECT_EQ(post(path_, stepsBody(1)).status, 200);
  EXPECT_FALSE(newRun().empty());
}

TEST_F(ScriptTest, RedirectsWithALocation) {
  service_->script(path_, redirectTo("http://127.0.0.1:1/"));
  const Answer answer = post(path_, stepsBody(1));
  EXPECT_EQ(answer.status, 307);
  EXPECT_NE(answer.head.find("Location: http://127.0.0.1:1/\r\n"), std::string::npos);
}

TEST_F(ScriptTest, DropsTheConnectionBeforeTheBodyIsSent) {
  service_->script(path_, dropBeforeBody());
  Client client(service_->url());
  const std::string text = requestText("POST", path_, "{}", keyHeader());
  client.send(text.substr(0, text.size() - 2));
  EXPECT_EQ(client.readToEnd(), "");
  EXPECT_EQ(service_->storedRequests().back()["body"], "");
}

TEST_F(ScriptTest, DropsTheConnectionAfterTheWholeRequest) {
  service_->script(path_, dropAfterRequest());
  EXPECT_EQ(rawAnswer(), "");
  EXPECT_TRUE(service_->steps().empty());
  EXPECT_EQ(service_->storedRequests().back()["body"], compactJson(stepsBody(1)));
  EXPECT_EQ(service_->storedRequests().back()["status"], 0);
}

TEST_F(ScriptTest, StoresAndLosesTheAnswer) {
  service_->script(path_, storeAndDrop());
  EXPECT_EQ(rawAnswer(), "");
  EXPECT_EQ(service_->steps().size(), 1U);
}

TEST_F(ScriptTest, SendsHalfAnAnswer) {
  service_->script(path_, answerHalf("{\"ab\":1}"));
  const std::string all = rawAnswer();
  EXPECT_NE(all.find("Content-Length: 8\r\n"), std::string::npos);
  EXPECT_EQ(all.substr(all.find("\r\n\r\n")), "\r\n\r\n{\"ab");
}

TEST_F(ScriptTest, SendsRawBytes) {
  service_->script(path_, answerRaw("\x01garbage\r\n"));
  EXPECT_EQ(rawAnswer(), "\x01garbage\r\n");
}

TEST_F(ScriptTest, StoresAtOnceAndAnswersLate) {
  service_->script(path_, answerLate(50ms));
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_EQ(post(path_, stepsBody(1)).status, 200);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 50ms);
  EXPECT_EQ(service_->steps().size(), 1U);
}

TEST_F(ScriptTest, StopsAtOnceAlthoughRequestsWaitAndConnectionsIdle) {
  service_->script(path_, neverAnswer(), 1);
  service_->script(path_, answerLate(1h), 1);
  const Client idle(service_->url());
  std::string unanswered = "untouched";
  std::thread one([&] { unanswered = rawAnswer(); });
  ASSERT_TRUE(service_->waitFor([&] { return service_->requests().size() == 2; }, kPatience));
  std::thread two([&] { rawAnswer(); });
  ASSERT_TRUE(service_->waitFor([&] { return service_->requests().size() == 3; }, kPatience));
  const auto begun = std::chrono::steady_clock::now();
  service_->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 200ms);
  one.join();
  two.join();
  EXPECT_EQ(unanswered, "");
  EXPECT_EQ(service_->steps().size(), 1U);
}

}  // namespace
}  // namespace pelmar::service
