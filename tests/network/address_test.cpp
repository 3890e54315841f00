// Services at IPv6 addresses, and names that have several addresses.

#include <unistd.h>

#include "platform/http.h"
#include "tests/network/network_test.h"
#include "tests/support/raw_server.h"

namespace pelmar::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr std::chrono::seconds kDeadline{60};
constexpr const char* kHost = "service.example";

bool hasIpv6() {
  try {
    ::close(boundSocket("::1"));
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

#define NEEDS_IPV6() \
  if (!hasIpv6()) GTEST_SKIP() << "this machine's loopback interface has no IPv6 address"

// `port` of `address`, taken and refusing.
class Refusal {
 public:
  Refusal(const std::string& address, int port) : socket_(boundSocket(address, port)) {}
  ~Refusal() { ::close(socket_); }
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;

 private:
  int socket_;
};

class AddressTest : public NetworkTest {};

TEST(Address, OfIpv6StandsInBracketsInTheHostHeader) {
  NEEDS_IPV6();
  const RawServer server({answering("200 OK", "")}, "::1");
  const auto url = "http://[::1]:" + std::to_string(server.port()) + "/path";
  EXPECT_EQ(HttpClient().send({.url = url, .deadline = kDeadline}).status, 200);
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].bytes,
            "GET /path HTTP/1.1\r\nHost: [::1]:" + std::to_string(server.port()) + "\r\n\r\n");
}

TEST_F(AddressTest, OfIpv6MayBeTheServices) {
  NEEDS_IPV6();
  const Relay relay({RelayKind::plain}, servicePort(), "::1");
  root_.addTranscript("s1", userLine("1", "one"));
  waitForAnotherPass(reportTo("http://[::1]:" + std::to_string(relay.port())));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one"));
  EXPECT_THAT(contentOf(root_.activityLog()),
              HasSubstr(R"("url":"http:\/\/[::1]:)" + std::to_string(relay.port()) + R"(\/api\/)"));
}

TEST_F(AddressTest, OfEitherFamilyServesWhenTheOtherRefuses) {
  NEEDS_OWN_NETWORK();
  NEEDS_IPV6();
  setHosts(std::string("127.0.0.1 ") + kHost + "\n::1 " + kHost + '\n');
  for (const auto& [serving, refusing] :
       {std::pair("127.0.0.1", "::1"), std::pair("::1", "127.0.0.1")}) {
    const RawServer server({answering("200 OK", "")}, serving);
    const Refusal refusal(refusing, server.port());
    const auto url = "http://" + std::string(kHost) + ':' + std::to_string(server.port()) + '/';
    const auto exchange =
        HttpClient().send({.url = url, .headers = {{"X-Pel-Key", "k"}}, .deadline = kDeadline});
    EXPECT_EQ(exchange.status, 200) << serving;
    EXPECT_EQ(exchange.error, std::nullopt) << serving;
    ASSERT_EQ(server.requests().size(), 1U) << serving;
    EXPECT_THAT(server.requests()[0].bytes, HasSubstr("Host: " + std::string(kHost) + ':'));
  }
}

TEST_F(AddressTest, ThatServesIsFoundBehindThoseThatRefuse) {
  NEEDS_OWN_NETWORK();
  const RawServer server({answering("200 OK", "")}, "127.0.0.200");
  std::string hosts;
  for (const char* address : {"127.0.0.198", "127.0.0.199", "127.0.0.200"}) {
    hosts += std::string(address) + ' ' + kHost + '\n';
  }
  setHosts(hosts);
  const auto url = "http://" + std::string(kHost) + ':' + std::to_string(server.port()) + '/';
  EXPECT_EQ(HttpClient().send({.url = url, .body = "{}", .deadline = kDeadline}).status, 200);
  EXPECT_EQ(server.connectionCount(), 1U);
}

}  // namespace
}  // namespace pelmar::test
