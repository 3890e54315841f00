// What failures must not cost: descriptors, more attempts than there are to be.

#include <algorithm>
#include <chrono>

#include "platform/http.h"
#include "tests/network/network_test.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/raw_server.h"
#include "tests/support/refusing_port.h"

namespace pelmar::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

// Sends `count` requests of every kind that fails; the servers are gone when it returns.
void failInEveryWay(HttpClient& client, std::size_t count) {
  const auto always = [&](const RawAnswer& answer) { return std::vector(count, answer); };
  const RefusingPort refusing;
  const RawServer closing(always({.after = After::close}));
  const RawServer resetting(always({.after = After::reset}));
  const RawServer garbling(always({.bytes = "garbage\r\n\r\n", .after = After::close}));
  const RawServer halving(always(
      {.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", .after = After::close}));
  const RawServer busy(always(
      {.bytes = "HTTP/1.1 503 Unavailable\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"}));
  const RawServer elsewhere(
      always({.bytes = "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:9/\r\n\r\n",
              .after = After::close}));
  const RawServer silent(always({}));
  const Relay stranger({RelayKind::tls, selfSigned({.host = "localhost"})});
  const Relay hangingUp({RelayKind::hangingUp});
  const auto secure = [](const Relay& relay) {
    return "https://127.0.0.1:" + std::to_string(relay.port());
  };
  for (const auto& url :
       {refusing.url(), closing.url(), resetting.url(), garbling.url(), halving.url(), busy.url(),
        elsewhere.url(), silent.url(), secure(stranger), secure(hangingUp)}) {
    const auto deadline = url == silent.url() ? 10ms : 60s;
    for (std::size_t i = 0; i < count; ++i) {
      const auto exchange = client.send({.url = url, .body = "{}", .deadline = deadline});
      EXPECT_TRUE(exchange.error || exchange.status == 0 || exchange.status >= 300) << url;
    }
  }
  EXPECT_EQ(stranger.connectionCount(), count);
  EXPECT_EQ(hangingUp.connectionCount(), count);
}

TEST(Bounds, FiveHundredFailuresLeaveNoDescriptorBehind) {
  if (isOwnNetwork()) trust(CertificateAuthority().pem());
  HttpClient client;
  failInEveryWay(client, 1);
  const int before = openDescriptors();
  failInEveryWay(client, 50);
  EXPECT_EQ(openDescriptors(), before);
}

class BoundsTest : public NetworkTest {};

TEST_F(BoundsTest, AnOutageIsThreeAttemptsAndThreeSecondsOfPausesATry) {
  const RawServer server({});
  root_.addTranscript("s1", userLine("1", "one"));
  const auto begin = steady_clock::now();
  reportTo(server.url());
  for (int tries = 0; tries < 2; ++tries) {
    ASSERT_TRUE(agent().waitForLine("transport failure after 3 attempts"));
  }
  const auto attempts = outcomes().size();
  const auto elapsed = steady_clock::now() - begin;
  const auto lines = agent().lines();
  const auto tries = static_cast<std::size_t>(
      std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("transport failure after 3 attempts") != std::string::npos;
      }));
  EXPECT_GE(elapsed, tries * 3s);
  EXPECT_EQ(attempts / 3, tries);
  // One may have been under way when the agent was ended.
  EXPECT_GE(server.requests().size(), attempts);
  EXPECT_LE(server.requests().size(), attempts + 1);
  EXPECT_EQ(server.connectionCount(), server.requests().size());
}

}  // namespace
}  // namespace pelmar::test
