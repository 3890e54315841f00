#include <gmock/gmock.h>

#include <chrono>
#include <string>

#include "platform/http.h"
#include "tests/support/raw_server.h"

namespace pelmar {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test::After;
using test::answering;
using test::RawAnswer;
using test::RawServer;
using ::testing::Eq;
using ::testing::Ne;
using ::testing::Optional;

// Far beyond any test: no deadline decides one, but in those that run into it on purpose.
constexpr auto kDeadline = 60s;
constexpr auto kShortDeadline = 200ms;

// What a fresh client makes of `answer`.
HttpExchange exchangeFor(const RawAnswer& answer) {
  RawServer server({answer});
  return HttpClient().send({.url = server.url("/"), .body = "{}", .deadline = kDeadline});
}

TEST(HttpAnswer, BodyAndStatusAreReported) {
  const auto exchange = exchangeFor(answering("200 OK", "{\"a\":1}"));
  EXPECT_THAT(exchange.body, Optional(Eq("{\"a\":1}")));
  EXPECT_EQ(exchange.status, 200);
  EXPECT_EQ(exchange.error, std::nullopt);
  EXPECT_FALSE(exchange.isTimeout());
}

TEST(HttpAnswer, EveryStatusIsAnAnswer) {
  for (const int status : {200, 201, 299, 304, 400, 401, 404, 407, 417, 429, 500, 503, 599}) {
    const auto exchange = exchangeFor(answering(std::to_string(status) + " Reason", ""));
    EXPECT_EQ(exchange.status, status);
    EXPECT_EQ(exchange.error, std::nullopt) << status;
  }
}

TEST(HttpAnswer, WithoutABodyHasNone) {
  const auto exchange = exchangeFor({.bytes = "HTTP/1.1 204 No Content\r\n\r\n"});
  EXPECT_EQ(exchange.status, 204);
  EXPECT_EQ(exchange.body.value_or(""), "");
  EXPECT_EQ(exchange.error, std::nullopt);
}

TEST(HttpAnswer, InChunksIsPutTogether) {
  const auto exchange = exchangeFor({.bytes = "HTTP/1.1 200 OK\r\n"
                                              "Transfer-Encoding: chunked\r\n"
                                              "\r\n"
                                              "4\r\n{\"a\"\r\n"
                                              "3;note=x\r\n:1}\r\n"
                                              "0\r\n\r\n"});
  EXPECT_THAT(exchange.body, Optional(Eq("{\"a\":1}")));
  EXPECT_EQ(exchange.status, 200);
  EXPECT_EQ(exchange.error, std::nullopt);
}

TEST(HttpAnswer, InChunksMayHaveFieldsBehindIt) {
  const auto exchange = exchangeFor({.bytes = "HTTP/1.1 200 OK\r\n"
                                              "Transfer-Encoding: chunked\r\n"
                                              "\r\n"
                                              "2\r\n{}\r\n"
                                              "0\r\nX-Trailer: x\r\n\r\n"});
  EXPECT_THAT(exchange.body, Optional(Eq("{}")));
  EXPECT_EQ(exchange.status, 200);
  EXPECT_EQ(exchange.error, std::nullopt);
}

TEST(HttpAnswer, WithoutALengthEndsWithTheConnection) {
  const auto exchange =
      exchangeFor({.bytes = "HTTP/1.1 200 OK\r\n\r\n{\"a\":1}", .after = After::close});
  EXPECT_THAT(exchange.body, Optional(Eq("{\"a\":1}")));
  EXPECT_EQ(exchange.status, 200);
  EXPECT_EQ(exchange.error, std::nullopt);
}

TEST(HttpAnswer, IsTheOneBehindInterimAnswers) {
  const auto exchange =
      exchangeFor({.bytes = "HTTP/1.1 100 Continue\r\n\r\n"
                            "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"
                            "HTTP/1.1 201 Created\r\nContent-Length: 2\r\n\r\n{}"});
  EXPECT_EQ(exchange.status, 201);
  EXPECT_THAT(exchange.body, Optional(Eq("{}")));
}

// libcurl up to 7.88 takes such a line for more of the last one before, which it has freed.
TEST(HttpAnswer, ThatBeginsWithAFoldedLineHasNoPartInTheOneBefore) {
  RawServer server({answering("200 OK", "{}"),
                    {.bytes = "HTTP/1.1 200 OK\r\n folded: 2\r\nContent-Length: 2\r\n\r\n{}"}});
  HttpClient client;
  const HttpRequest request{.url = server.url("/"), .body = "{}", .deadline = kDeadline};
  EXPECT_EQ(client.send(request).status, 200);
  EXPECT_THAT(client.send(request).error, Optional(Ne("")));
}

TEST(HttpAnswer, RedirectIsNotFollowed) {
  for (const auto* status :
       {"301 Moved", "302 Found", "303 See Other", "307 Temporary", "308 Permanent"}) {
    RawServer server({{.bytes = "HTTP/1.1 " + std::string(status) +
                                "\r\nLocation: /elsewhere\r\nContent-Length: 2\r\n\r\nno"},
                      answering("200 OK", "")});
    const auto exchange =
        HttpClient().send({.url = server.url("/"), .body = "{}", .deadline = kDeadline});
    EXPECT_EQ(exchange.status, std::stoi(status));
    EXPECT_THAT(exchange.body, Optional(Eq("no")));
    EXPECT_EQ(exchange.error, std::nullopt);
    EXPECT_EQ(server.requests().size(), 1U);
  }
}

TEST(HttpAnswer, ThatBreaksOffIsAnError) {
  for (const auto* half :
       {"", "HTT", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Le",
        "HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf\r\n"}) {
    const auto exchange = exchangeFor({.bytes = half, .after = After::close});
    EXPECT_NE(exchange.error, std::nullopt) << half;
    EXPECT_FALSE(exchange.isTimeout()) << half;
  }
}

TEST(HttpAnswer, ThatIsNoHttpIsAnError) {
  for (const auto* garbage : {"garbage\r\n\r\n", "\x16\x03\x01", "<html></html>", "{}",
                              "SSH-2.0-OpenSSH_9.2\r\n", "\r\n\r\n"}) {
    const auto exchange = exchangeFor({.bytes = garbage, .after = After::close});
    EXPECT_NE(exchange.error, std::nullopt) << garbage;
    EXPECT_EQ(exchange.body, std::nullopt) << garbage;
    EXPECT_EQ(exchange.status, 0) << garbage;
  }
}

TEST(HttpAnswer, OfHttp2IsAnError) {
  for (const auto& frame : {"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"s, "\0\0\0\4\0\0\0\0\0"s}) {
    const auto exchange = exchangeFor({.bytes = frame, .after = After::close});
    EXPECT_NE(exchange.error, std::nullopt) << frame;
    EXPECT_EQ(exchange.body, std::nullopt) << frame;
  }
}

TEST(HttpAnswer, LongerThanItSaysIsCutThereAndTheRestIsNobodysAnswer) {
  RawServer server({{.bytes = "HTTP/1.1 201 Created\r\nContent-Length: 2\r\n\r\n{}"
                              "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nforge"},
                    answering("404 Not Found", "real")});
  HttpClient client;
  const auto first = client.send({.url = server.url("/"), .body = "{}", .deadline = kDeadline});
  EXPECT_EQ(first.status, 201);
  EXPECT_THAT(first.body, Optional(Eq("{}")));
  const auto second = client.send({.url = server.url("/"), .body = "{}", .deadline = kDeadline});
  EXPECT_EQ(second.status, 404);
  EXPECT_THAT(second.body, Optional(Eq("real")));
}

TEST(HttpAnswer, InAnEncodingThatNobodyAskedForIsTakenAsItCame) {
  const auto packed = "\x1F\x8B\x08\0\0\0\0\0\0\x03\xAB\xAE\x05\0\x43\xBF\xA6\xA3\2\0\0\0"s;
  const auto exchange =
      exchangeFor({.bytes = "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " +
                            std::to_string(packed.size()) + "\r\n\r\n" + packed});
  EXPECT_EQ(exchange.status, 200);
  EXPECT_EQ(exchange.error, std::nullopt);
  EXPECT_THAT(exchange.body, Optional(Eq(packed)));
}

TEST(HttpAnswer, WithAHeadThatHasNoEndIsAnError) {
  std::string manyFields = "HTTP/1.1 200 OK\r\n";
  for (int i = 0; i < 100000; ++i) manyFields += "X-Field: twenty bytes at least\r\n";
  const std::string longField = "HTTP/1.1 200 OK\r\nX-Field: " + std::string(1000000, 'x');
  for (const auto& head : {manyFields, longField}) {
    const auto exchange = exchangeFor({.bytes = head});
    EXPECT_NE(exchange.error, std::nullopt);
    EXPECT_EQ(exchange.body, std::nullopt);
  }
}

TEST(HttpAnswer, WithoutAStatusOfThreeDigitsIsAnError) {
  for (const auto* status : {"HTTP/2 0 OK", "HTTP/2 00 OK", "HTTP/2 99 OK", "HTTP/2 21.00 OK"}) {
    const auto exchange =
        exchangeFor({.bytes = std::string(status) + "\r\n\r\n{}", .after = After::close});
    EXPECT_NE(exchange.error, std::nullopt) << status;
    EXPECT_EQ(exchange.body, std::nullopt) << status;
    EXPECT_EQ(exchange.status, 0) << status;
  }
}

TEST(HttpAnswer, OfEightMebibytesIsTakenAndABiggerOneLosesItsBody) {
  constexpr std::size_t kMost = 8 * 1024 * 1024;
  const auto whole = exchangeFor(answering("200 OK", std::string(kMost, 'x')));
  EXPECT_EQ(whole.status, 200);
  EXPECT_EQ(whole.error, std::nullopt);
  EXPECT_TRUE(whole.body == std::string(kMost, 'x'));

  const auto bigger = exchangeFor(answering("201 Created", std::string(kMost + 1, 'x')));
  EXPECT_EQ(bigger.status, 201);
  EXPECT_EQ(bigger.error, std::nullopt);
  EXPECT_EQ(bigger.body, std::nullopt);
  EXPECT_FALSE(bigger.isTimeout());
}

void expectTimeout(const HttpExchange& exchange) {
  EXPECT_EQ(exchange.body, std::nullopt);
  EXPECT_EQ(exchange.status, 0);
  EXPECT_EQ(exchange.error, std::nullopt);
  EXPECT_TRUE(exchange.isTimeout());
}

TEST(HttpDeadline, PassesWhenTheServerIsSilent) {
  RawServer server({RawAnswer{}});
  expectTimeout(
      HttpClient().send({.url = server.url("/"), .body = "{}", .deadline = kShortDeadline}));
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST(HttpDeadline, PassesInTheMiddleOfAnAnswerAndLeavesNothingOfIt) {
  for (const auto* half :
       {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf",
        "HTTP/1.1 100 Continue\r\n\r\n"}) {
    RawServer server({{.bytes = half}});
    expectTimeout(
        HttpClient().send({.url = server.url("/"), .body = "{}", .deadline = kShortDeadline}));
  }
}

TEST(HttpDeadline, PassesThoughBytesKeepComing) {
  RawServer server(
      {{.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + std::string(100000, 'x'),
        .between = 10ms}});
  expectTimeout(
      HttpClient().send({.url = server.url("/"), .body = "{}", .deadline = kShortDeadline}));
}

TEST(HttpDeadline, PassedOnAKeptConnectionIsTheEndOfThatConnection) {
  RawServer server({answering("200 OK", "a", After::ignore), answering("200 OK", "b")});
  HttpClient client;
  EXPECT_EQ(client.send({.url = server.url("/"), .body = "{}", .deadline = kDeadline}).status, 200);
  // More than the system takes for a peer that does not read.
  std::string body;
  body.resize(20000000, 'x');
  expectTimeout(client.send({.url = server.url("/"), .body = body, .deadline = kShortDeadline}));
  const auto exchange = client.send({.url = server.url("/"), .body = "{}", .deadline = kDeadline});
  EXPECT_THAT(exchange.body, Optional(Eq("b")));
  EXPECT_EQ(server.connectionCount(), 2U);
}

TEST(HttpDeadline, PassedOnceLeavesTheClientUsable) {
  RawServer server({RawAnswer{}, answering("200 OK", "later")});
  HttpClient client;
  expectTimeout(client.send({.url = server.url("/"), .deadline = kShortDeadline}));
  const auto exchange = client.send({.url = server.url("/"), .deadline = kDeadline});
  EXPECT_EQ(exchange.status, 200);
  EXPECT_THAT(exchange.body, Optional(Eq("later")));
}

}  // namespace
}  // namespace pelmar
