#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "platform/http.h"
#include "tests/support/environment_variable.h"
#include "tests/support/raw_server.h"

namespace pelmar {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test::After;
using test::answering;
using test::RawServer;

// Far beyond any test: no deadline decides one.
constexpr auto kDeadline = 60s;

// Why an exchange failed belongs to the message of a test that expected it not to.
int statusOf(const HttpExchange& exchange) {
  EXPECT_EQ(exchange.error, std::nullopt);
  return exchange.status;
}

TEST(HttpRequest, GetSendsTheNamedHeadersAndNoOther) {
  RawServer server({answering("200 OK", "")});
  HttpClient().send({.url = server.url("/a/b/?c=d%20e"),
                     .headers = {{"X-First", "one"}, {"X-Second", "two words"}},
                     .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].bytes,
            "GET /a/b/?c=d%20e HTTP/1.1\r\n"
            "Host: " +
                server.authority() +
                "\r\n"
                "X-First: one\r\n"
                "X-Second: two words\r\n"
                "\r\n");
}

TEST(HttpRequest, AProxyOfTheEnvironmentGetsNoHeaderOfItsOwn) {
  RawServer proxy({answering("200 OK", "")});
  const test::EnvironmentVariable use("http_proxy", proxy.url());
  HttpClient().send({.url = "http://service.example/path", .deadline = kDeadline});
  ASSERT_EQ(proxy.requests().size(), 1U);
  EXPECT_EQ(proxy.requests()[0].bytes,
            "GET http://service.example/path HTTP/1.1\r\n"
            "Host: service.example\r\n"
            "\r\n");
}

TEST(HttpRequest, PostSendsTheNamedHeadersTheLengthAndTheBody) {
  RawServer server({answering("200 OK", "")});
  HttpClient().send({.url = server.url("/path"),
                     .headers = {{"X-Pel-Key", "key"}, {"Content-Type", "application/json"}},
                     .body = "{\"a\":1}",
                     .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].bytes,
            "POST /path HTTP/1.1\r\n"
            "Host: " +
                server.authority() +
                "\r\n"
                "X-Pel-Key: key\r\n"
                "Content-Type: application/json\r\n"
                "Content-Length: 7\r\n"
                "\r\n"
                "{\"a\":1}");
}

TEST(HttpRequest, PostWithoutHeadersSendsTheLengthOnly) {
  RawServer server({answering("200 OK", ""), answering("200 OK", "")});
  HttpClient client;
  client.send({.url = server.url("/"), .body = "body", .deadline = kDeadline});
  client.send({.url = server.url("/"), .body = "", .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[0].bytes,
            "POST / HTTP/1.1\r\nHost: " + server.authority() + "\r\nContent-Length: 4\r\n\r\nbody");
  EXPECT_EQ(server.requests()[1].bytes,
            "POST / HTTP/1.1\r\nHost: " + server.authority() + "\r\nContent-Length: 0\r\n\r\n");
}

TEST(HttpRequest, BodyBeyondAMegabyteIsSentAtOnceAndWhole) {
  RawServer server({answering("200 OK", "")});
  std::string body(3000000, 'x');
  for (std::size_t i = 0; i < body.size(); i += 997) body[i] = static_cast<char>(i / 997);
  const auto exchange = HttpClient().send({.url = server.url("/"),
                                           .headers = {{"Content-Type", "application/json"}},
                                           .body = body,
                                           .deadline = kDeadline});
  EXPECT_EQ(statusOf(exchange), 200);
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_TRUE(server.requests()[0].bytes ==
              "POST / HTTP/1.1\r\n"
              "Host: " +
                  server.authority() +
                  "\r\n"
                  "Content-Type: application/json\r\n"
                  "Content-Length: 3000000\r\n"
                  "\r\n" +
                  body);
}

TEST(HttpRequest, BodyMayHoldAnyBytes) {
  RawServer server({answering("200 OK", "")});
  const std::string body = "\0\r\n\r\n\xFF\0"s;
  HttpClient().send({.url = server.url("/"),
                     .headers = {{"Content-Type", "x/y"}},
                     .body = body,
                     .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_THAT(server.requests()[0].bytes,
              testing::EndsWith("Content-Length: 7\r\n\r\n\0\r\n\r\n\xFF\0"s));
}

TEST(HttpRequest, EmptyBlankAndNonAsciiHeaderValuesAreSentAsTheyAre) {
  RawServer server({answering("200 OK", "")});
  HttpClient().send(
      {.url = server.url("/"),
       .headers = {{"X-Empty", ""}, {"X-Blank", " \t"}, {"X-Name", "J\xC3\xB6rg; a=\"b\""}},
       .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].bytes,
            "GET / HTTP/1.1\r\nHost: " + server.authority() +
                "\r\nX-Empty:\r\nX-Blank:\r\nX-Name: J\xC3\xB6rg; a=\"b\"\r\n\r\n");
}

TEST(HttpRequest, HeaderValueWithALineBreakIsRefusedWithoutARequest) {
  for (const auto& value : {"a\r\nX-Forged: b"s, "a\nb"s, "a\rb"s, "a\0b"s, "\r\n"s}) {
    RawServer server({answering("200 OK", "")});
    const auto exchange = HttpClient().send(
        {.url = server.url("/"), .headers = {{"X-Value", value}}, .deadline = kDeadline});
    EXPECT_NE(exchange.error, std::nullopt);
    EXPECT_EQ(exchange.status, 0);
    EXPECT_EQ(exchange.body, std::nullopt);
    EXPECT_FALSE(exchange.isTimeout());
    EXPECT_EQ(server.connectionCount(), 0U);
  }
}

TEST(HttpRequest, UserAndPasswordOfTheUrlAreNotSent) {
  RawServer server({answering("401 Unauthorized", ""), answering("200 OK", "")});
  const auto exchange = HttpClient().send(
      {.url = "http://user:word@" + server.authority() + "/path", .deadline = kDeadline});
  EXPECT_EQ(statusOf(exchange), 401);
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].bytes,
            "GET /path HTTP/1.1\r\nHost: " + server.authority() + "\r\n\r\n");
}

TEST(HttpRequest, ChallengeForAPasswordIsNotTakenUp) {
  RawServer server({{.bytes = "HTTP/1.1 401 Unauthorized\r\n"
                              "WWW-Authenticate: Basic realm=\"a\"\r\n"
                              "Content-Length: 0\r\n\r\n"},
                    answering("200 OK", "")});
  const auto exchange = HttpClient().send(
      {.url = "http://user:word@" + server.authority() + "/", .deadline = kDeadline});
  EXPECT_EQ(statusOf(exchange), 401);
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST(HttpRequest, PathIsSentAsItIsAndTheFragmentIsKept) {
  RawServer server({answering("200 OK", ""), answering("200 OK", "")});
  HttpClient client;
  client.send({.url = server.url("/a//b/../c/./d%2Fe?f=/../g#part"), .deadline = kDeadline});
  client.send({.url = server.url("?q"), .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_THAT(server.requests()[0].bytes,
              testing::StartsWith("GET /a//b/../c/./d%2Fe?f=/../g HTTP/1.1\r\n"));
  EXPECT_THAT(server.requests()[1].bytes, testing::StartsWith("GET /?q HTTP/1.1\r\n"));
}

TEST(HttpRequest, CookiesAreNeitherKeptNorSent) {
  RawServer server({{.bytes = "HTTP/1.1 200 OK\r\nSet-Cookie: a=b\r\nContent-Length: 0\r\n\r\n"},
                    answering("200 OK", "")});
  HttpClient client;
  client.send({.url = server.url("/"), .deadline = kDeadline});
  client.send({.url = server.url("/"), .deadline = kDeadline});
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[1].bytes, server.requests()[0].bytes);
}

TEST(HttpRequest, UrlThatIsNeitherHttpNorHttpsFails) {
  for (const auto* url :
       {"", "127.0.0.1/path", "localhost", "/path", "//127.0.0.1/", "ftp://127.0.0.1/",
        "file:///etc/hosts", "gopher://127.0.0.1/", "dict://127.0.0.1/", "telnet://127.0.0.1/",
        "smtp://127.0.0.1/", "http://", "mailto:a@b"}) {
    const auto exchange = HttpClient().send({.url = url, .deadline = kDeadline});
    EXPECT_NE(exchange.error, std::nullopt) << url;
    EXPECT_EQ(exchange.status, 0) << url;
    EXPECT_EQ(exchange.body, std::nullopt) << url;
  }
}

TEST(HttpRequest, UrlWithoutASchemeIsNotTakenForHttp) {
  RawServer server({answering("200 OK", "")});
  for (const auto& url : {server.authority() + "/path", "//" + server.authority() + "/path"}) {
    EXPECT_NE(HttpClient().send({.url = url, .deadline = kDeadline}).error, std::nullopt) << url;
  }
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST(HttpRequest, ConnectionThatIsRefusedFails) {
  // Bound and not listening: the port is taken and nothing answers there.
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);

  const auto port = std::to_string(ntohs(address.sin_port));
  const auto exchange = HttpClient().send({.url = "http://127.0.0.1:" + port + "/",
                                           .headers = {{"X-Pel-Key", "secret-value"}},
                                           .deadline = kDeadline});
  ASSERT_NE(exchange.error, std::nullopt);
  EXPECT_THAT(*exchange.error, testing::Not(testing::HasSubstr("secret-value")));
  EXPECT_FALSE(exchange.error->empty());
  EXPECT_EQ(exchange.status, 0);
  EXPECT_EQ(exchange.body, std::nullopt);
  ::close(socket);
}

TEST(HttpRequest, HttpsIsSpokenAsTlsAndNeverInTheClear) {
  RawServer server({{.after = After::close, .when = test::When::headIsRead}});
  const auto exchange =
      HttpClient().send({.url = "https://" + server.authority() + "/", .deadline = 200ms});
  EXPECT_EQ(exchange.status, 0);
  EXPECT_THAT(server.requests(), testing::IsEmpty());
}

}  // namespace
}  // namespace pelmar
