// The proxy that the environment names.

#include "platform/http.h"
#include "tests/network/network_test.h"
#include "tests/support/environment_variable.h"
#include "tests/support/raw_server.h"
#include "tests/support/refusing_port.h"

namespace pelmar::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kHost = "service.example";

class ProxyTest : public NetworkTest {
 protected:
  static std::string urlOf(const Relay& proxy) {
    return "http://127.0.0.1:" + std::to_string(proxy.port());
  }
};

// The parameter is the variable that names the proxy.
class PlainProxyTest : public ProxyTest, public ::testing::WithParamInterface<const char*> {};
class SecureProxyTest : public ProxyTest, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Proxy, PlainProxyTest,
                         ::testing::Values("http_proxy", "all_proxy", "ALL_PROXY"));
INSTANTIATE_TEST_SUITE_P(Proxy, SecureProxyTest,
                         ::testing::Values("https_proxy", "HTTPS_PROXY", "all_proxy"));

TEST_P(PlainProxyTest, GetsRequestsForAPlainServiceWhole) {
  const RawServer proxy({answering("200 OK", kRunAnswer), answering("200 OK", "{}")});
  root_.addTranscript("s1", userLine("1", "one"));
  reportTo("http://service.example:81", {std::string(GetParam()) + '=' + proxy.url()});
  waitForAnotherPass(agent());
  EXPECT_THAT(outcomes(), ElementsAre("200", "200"));
  ASSERT_EQ(proxy.requests().size(), 2U);
  EXPECT_THAT(proxy.requests()[0].bytes,
              AllOf(StartsWith("POST http://service.example:81/api/v1/observe/runs/start/ "
                               "HTTP/1.1\r\nHost: service.example:81\r\n"),
                    HasSubstr(kKey)));
}

TEST_P(SecureProxyTest, SeesNothingOfWhatGoesToASecureServiceButItsName) {
  NEEDS_OWN_NETWORK();
  const CertificateAuthority authority;
  trust(authority.pem());  // and the name is in no hosts file: it is the proxy's to look up
  const Relay service({RelayKind::tls, authority.issue({.host = kHost})}, servicePort());
  const Relay proxy({RelayKind::proxy});
  root_.addTranscript("s1", userLine("1", "one"));
  const auto place = std::string(kHost) + ':' + std::to_string(service.port());
  reportTo("https://" + place, {std::string(GetParam()) + '=' + urlOf(proxy)});
  waitForAnotherPass(agent());
  EXPECT_THAT(outcomes(), ElementsAre("200", "200"));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one"));
  EXPECT_THAT(service.received(), HasSubstr(kKey));
  const auto seen = proxy.received();
  EXPECT_EQ(seen.substr(0, seen.find("\r\n\r\n")), "CONNECT " + place + " HTTP/1.1\r\nHost: " +
                                                       place + "\r\nProxy-Connection: Keep-Alive");
  EXPECT_THAT(seen, Not(HasSubstr(kKey)));
  EXPECT_THAT(seen, Not(HasSubstr("/api/v1/")));
}

TEST_F(ProxyTest, ThatPretendsToBeTheServiceGetsNothing) {
  NEEDS_OWN_NETWORK();
  const CertificateAuthority authority;
  trust(authority.pem());
  const Relay stranger({RelayKind::tls, selfSigned({.host = kHost})}, servicePort());
  const Relay proxy({RelayKind::proxy});
  root_.addTranscript("s1", userLine("1", "one"));
  reportTo("https://" + std::string(kHost) + ':' + std::to_string(stranger.port()),
           {"https_proxy=" + urlOf(proxy)});
  ASSERT_TRUE(stranger.waitForFailures(2));
  EXPECT_EQ(stranger.received(), "");
  EXPECT_THAT(outcomes().front(), StartsWith("0 "));
}

TEST_F(ProxyTest, ThatRefusesIsAFailureThatIsTriedAgain) {
  for (const char* refusal : {"403 Forbidden", "407 Proxy Authentication Required",
                              "502 Bad Gateway", "301 Moved Permanently"}) {
    const RawServer proxy({{.bytes = "HTTP/1.1 " + std::string(refusal) +
                                     "\r\nLocation: http://127.0.0.1:9/\r\nProxy-Authenticate: "
                                     "Basic realm=\"a\"\r\nContent-Length: 2\r\n\r\n{}"}});
    const EnvironmentVariable use("https_proxy", proxy.url());
    const auto exchange = HttpClient().send({.url = "https://service.example/",
                                             .headers = {{"X-Pel-Key", kKey}},
                                             .body = "{}",
                                             .deadline = kPatience});
    EXPECT_NE(exchange.error, std::nullopt) << refusal;
    ASSERT_EQ(proxy.requests().size(), 1U) << refusal;
    EXPECT_THAT(proxy.requests()[0].bytes, Not(HasSubstr(kKey)));
  }
}

TEST_F(ProxyTest, ThatIsDownLosesNothing) {
  const RefusingPort nobody;
  root_.addTranscript("s1", userLine("1", "one"));
  reportTo(service_->url(), {"http_proxy=" + nobody.url()});
  ASSERT_TRUE(agent().waitForLine("transport failure after 3 attempts"));
  EXPECT_THAT(outcomes().front(), StartsWith("0 "));
  EXPECT_EQ(service_->requests().size(), 0U);
  reportTo(service_->url());
  ASSERT_TRUE(waitForSteps(1));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one"));
}

TEST_F(ProxyTest, IsPassedByForTheHostsOfNoProxy) {
  for (const char* hosts : {"127.0.0.1", "other.example,127.0.0.1", "*"}) {
    const RawServer proxy({});
    const RawServer server({answering("200 OK", "")});
    const EnvironmentVariable use("http_proxy", proxy.url());
    const EnvironmentVariable exceptFor("no_proxy", hosts);
    EXPECT_EQ(HttpClient().send({.url = server.url("/"), .deadline = kPatience}).status, 200);
    EXPECT_EQ(proxy.connectionCount(), 0U) << hosts;
  }
  const RawServer proxy({answering("201 Created", "")});
  const EnvironmentVariable use("http_proxy", proxy.url());
  const EnvironmentVariable exceptFor("no_proxy", "other.example");
  EXPECT_EQ(HttpClient().send({.url = "http://service.example/", .deadline = kPatience}).status,
            201);
}

}  // namespace
}  // namespace pelmar::test
