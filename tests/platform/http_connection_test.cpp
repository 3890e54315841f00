#include <gmock/gmock.h>

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "platform/http.h"
#include "tests/support/raw_server.h"
#include "tests/support/sockets.h"

namespace pelmar {
namespace {

using namespace std::chrono_literals;
using test::After;
using test::answering;
using test::RawServer;
using ::testing::Eq;
using ::testing::Optional;

constexpr auto kDeadline = 60s;

HttpRequest post(const RawServer& server, std::string_view body) {
  return {.url = server.url("/"),
          .headers = {{"Content-Type", "application/json"}},
          .body = body,
          .deadline = kDeadline};
}

TEST(HttpConnection, IsKeptForLaterRequests) {
  RawServer server({answering("200 OK", "a"), answering("404 Not Found", "b"),
                    answering("503 Unavailable", ""), answering("200 OK", "d")});
  HttpClient client;
  EXPECT_THAT(client.send(post(server, "1")).body, Optional(Eq("a")));
  EXPECT_THAT(client.send({.url = server.url("/get"), .deadline = kDeadline}).body,
              Optional(Eq("b")));
  EXPECT_EQ(client.send(post(server, "3")).status, 503);
  EXPECT_THAT(client.send(post(server, "4")).body, Optional(Eq("d")));
  ASSERT_EQ(server.requests().size(), 4U);
  EXPECT_EQ(server.connectionCount(), 1U);
  EXPECT_EQ(server.requests()[1].bytes,
            "GET /get HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
  EXPECT_THAT(server.requests()[3].bytes, testing::EndsWith("Content-Length: 1\r\n\r\n4"));
}

TEST(HttpConnection, ThatTheServerClosedInBetweenIsReopened) {
  RawServer server({answering("200 OK", "a", After::close), answering("200 OK", "b")});
  HttpClient client;
  EXPECT_THAT(client.send(post(server, "1")).body, Optional(Eq("a")));
  server.waitUntilClosed(1);
  const auto exchange = client.send(post(server, "2"));
  EXPECT_EQ(exchange.error, std::nullopt);
  EXPECT_THAT(exchange.body, Optional(Eq("b")));
  EXPECT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.connectionCount(), 2U);
}

TEST(HttpConnection, ThatTheServerAnnouncesToCloseIsNotReused) {
  RawServer server({{.bytes = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"},
                    answering("200 OK", "b")});
  HttpClient client;
  EXPECT_EQ(client.send(post(server, "1")).status, 200);
  EXPECT_THAT(client.send(post(server, "2")).body, Optional(Eq("b")));
  EXPECT_EQ(server.connectionCount(), 2U);
}

TEST(HttpConnection, KeptThatDiesBehindTheRequestGivesAnErrorAndNoSecondRequest) {
  RawServer server({answering("200 OK", "a"), {.after = After::close}, answering("200 OK", "c")});
  HttpClient client;
  EXPECT_EQ(client.send(post(server, "1")).status, 200);
  const auto exchange = client.send(post(server, "2"));
  EXPECT_THAT(exchange.error, Optional(testing::Not(testing::IsEmpty())));
  EXPECT_EQ(exchange.status, 0);
  EXPECT_EQ(exchange.body, std::nullopt);
  EXPECT_FALSE(exchange.isTimeout());
  EXPECT_EQ(server.requests().size(), 2U);

  EXPECT_THAT(client.send(post(server, "3")).body, Optional(Eq("c")));
  EXPECT_EQ(server.requests().size(), 3U);
  EXPECT_THAT(server.requests()[2].bytes, testing::EndsWith("\r\n\r\n3"));
}

TEST(HttpConnection, ThatTheServerResetInBetweenIsReopened) {
  RawServer server({answering("200 OK", "a", After::reset),
                    answering("200 OK", "b"),
                    {.after = After::reset},
                    answering("200 OK", "c")});
  HttpClient client;
  EXPECT_EQ(client.send(post(server, "1")).status, 200);
  server.waitUntilClosed(1);
  EXPECT_THAT(client.send(post(server, "2")).body, Optional(Eq("b")));
  EXPECT_NE(client.send(post(server, "3")).error, std::nullopt);
  EXPECT_THAT(client.send(post(server, "4")).body, Optional(Eq("c")));
  EXPECT_EQ(server.requests().size(), 4U);
}

// As servers do that tell of a time limit before they close.
TEST(HttpConnection, KeptThatSpokeUnaskedAnswersNothing) {
  const int listener = test::listeningSocket("127.0.0.1");
  const HttpRequest request = {
      .url = "http://127.0.0.1:" + std::to_string(test::portOf(listener)) + '/',
      .body = "{}",
      .deadline = kDeadline};
  auto client = std::make_unique<HttpClient>();
  int kept = -1;
  std::thread server([&] {
    kept = test::acceptedFrom(listener);
    test::sendAll(kept, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
  });
  EXPECT_EQ(client->send(request).status, 200);
  server.join();
  test::sendAll(kept, "HTTP/1.1 408 Request Timeout\r\nContent-Length: 0\r\n\r\n");
  server = std::thread([&] {
    const int fresh = test::acceptedFrom(listener);
    test::sendAll(fresh, "HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n");
    char byte = 0;
    while (::recv(fresh, &byte, 1, 0) > 0) {
    }
    ::close(fresh);
  });
  EXPECT_EQ(client->send(request).status, 201);
  client.reset();
  ::close(test::connectionTo(test::portOf(listener)));  // lets go of a server that still waits
  server.join();
  ::close(kept);
  ::close(listener);
}

TEST(HttpConnection, KeptThatDiesBehindAGetGivesNoSecondRequestEither) {
  RawServer server({answering("200 OK", "a"), {.after = After::close}, answering("200 OK", "c")});
  HttpClient client;
  const HttpRequest get = {.url = server.url("/"), .deadline = kDeadline};
  EXPECT_EQ(client.send(get).status, 200);
  EXPECT_NE(client.send(get).error, std::nullopt);
  EXPECT_EQ(server.requests().size(), 2U);
}

TEST(HttpConnection, FreshThatDiesBehindTheRequestGivesAnError) {
  RawServer server({{.after = After::close}, answering("200 OK", "b")});
  HttpClient client;
  EXPECT_NE(client.send(post(server, "1")).error, std::nullopt);
  EXPECT_EQ(server.requests().size(), 1U);
  EXPECT_THAT(client.send(post(server, "2")).body, Optional(Eq("b")));
}

TEST(HttpConnection, ThatDiesUnderALargeBodyEndsNeitherTheProcessNorTheClient) {
  RawServer server(
      {{.after = After::close, .when = test::When::headIsRead}, answering("200 OK", "b")});
  std::string body;
  body.resize(20000000, 'x');
  HttpClient client;
  const auto exchange = client.send(post(server, body));
  EXPECT_NE(exchange.error, std::nullopt);
  EXPECT_EQ(server.requests().size(), 1U);
  EXPECT_THAT(client.send(post(server, "2")).body, Optional(Eq("b")));
}

TEST(HttpConnection, LeavesNothingOfOneAnswerForTheNext) {
  RawServer server({answering("200 OK", "first"),
                    {.bytes = "HTTP/1.1 204 No Content\r\n\r\n"},
                    {.after = After::close}});
  HttpClient client;
  client.send(post(server, "1"));
  const auto second = client.send(post(server, "2"));
  EXPECT_EQ(second.status, 204);
  EXPECT_EQ(second.body.value_or(""), "");
  EXPECT_EQ(client.send(post(server, "3")).status, 0);
}

}  // namespace
}  // namespace pelmar
