// Certificates: who must not get a byte, and that nothing is lost meanwhile.

#include <ostream>

#include "platform/json.h"
#include "tests/network/network_test.h"

namespace pelmar::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr const char* kHost = "service.example";

class TlsTest : public NetworkTest {
 protected:
  void SetUp() override {
    NEEDS_OWN_NETWORK();
    trust(authority_.pem());
    setHosts(std::string("127.0.0.1 localhost ") + kHost + '\n');
  }

  RelayFace good() const { return {RelayKind::tls, authority_.issue({.host = kHost})}; }

  static std::string urlOf(const Relay& relay, const std::string& host = kHost) {
    return "https://" + host + ':' + std::to_string(relay.port());
  }

  CertificateAuthority authority_;
};

TEST_F(TlsTest, AServiceWithATrustedCertificateGetsEverything) {
  const Relay relay(good(), servicePort());
  root_.addTranscript("s1", userLine("1", "one") + userLine("2", "two"));
  waitForAnotherPass(reportAs("garden", urlOf(relay)));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "two"));
  EXPECT_EQ(relay.connectionCount(), 1U);
  EXPECT_THAT(relay.received(), HasSubstr(kKey));
  EXPECT_THAT(outcomes(), ElementsAre("200", "200", "200"));
}

struct BadFace {
  const char* name;
  RelayFace (*make)(const CertificateAuthority& authority);
};
std::ostream& operator<<(std::ostream& out, const BadFace& face) { return out << face.name; }

const BadFace kBadFaces[] = {
    {"Expired",
     [](const CertificateAuthority& authority) {
       return RelayFace{RelayKind::tls, authority.issue({.host = kHost, .begin = -2, .end = -1})};
     }},
    {"NotYetValid",
     [](const CertificateAuthority& authority) {
       return RelayFace{RelayKind::tls, authority.issue({.host = kHost, .begin = 1, .end = 2})};
     }},
    {"OfAnotherHost",
     [](const CertificateAuthority& authority) {
       return RelayFace{RelayKind::tls, authority.issue({.host = "other.example"})};
     }},
    {"OfASubdomain",
     [](const CertificateAuthority& authority) {
       return RelayFace{RelayKind::tls, authority.issue({.host = "*.service.example"})};
     }},
    {"OfAnUnknownAuthority",
     [](const CertificateAuthority&) {
       return RelayFace{RelayKind::tls, CertificateAuthority().issue({.host = kHost})};
     }},
    {"SelfSigned",
     [](const CertificateAuthority&) {
       return RelayFace{RelayKind::tls, selfSigned({.host = kHost})};
     }},
    {"OfAnOldTls",
     [](const CertificateAuthority& authority) {
       return RelayFace{RelayKind::oldTls, authority.issue({.host = kHost})};
     }},
    {"BrokenOffInTheHandshake",
     [](const CertificateAuthority&) { return RelayFace{RelayKind::hangingUp}; }},
};

class BadTlsTest : public TlsTest, public ::testing::WithParamInterface<BadFace> {};

INSTANTIATE_TEST_SUITE_P(Tls, BadTlsTest, ::testing::ValuesIn(kBadFaces),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(BadTlsTest, GetsNothingAndAllArrivesOnceWhenItIsMended) {
  Relay relay(GetParam().make(authority_), servicePort());
  root_.addTranscript("s1", userLine("1", "one") + userLine("2", "two"));
  reportTo(urlOf(relay));
  ASSERT_TRUE(relay.waitForFailures(1));
  EXPECT_EQ(relay.received(), "");
  relay.show(good());
  ASSERT_TRUE(waitForSteps(2));
  waitForAnotherPass(agent());
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "two"));
  EXPECT_THAT(service_->runs(), SizeIs(1));
  const auto all = outcomes();
  EXPECT_THAT(all, ElementsAre(StartsWith("0 "), "200", "200", "200"));
}

TEST_F(TlsTest, AnAddressIsNotCoveredByACertificateOfAName) {
  const Relay relay(good(), servicePort());
  root_.addTranscript("s1", userLine("1", "one"));
  reportTo(urlOf(relay, "127.0.0.1"));
  ASSERT_TRUE(relay.waitForFailures(2));
  EXPECT_EQ(relay.received(), "");
  EXPECT_THAT(outcomes().front(), StartsWith("0 "));
}

TEST_F(TlsTest, AHeartbeatGoesToNoStranger) {
  const Relay relay({RelayKind::tls, selfSigned({.host = kHost})}, servicePort());
  waitForAnotherPass(reportAs("garden", urlOf(relay)));
  ASSERT_TRUE(relay.waitForFailures(1));
  EXPECT_EQ(relay.received(), "");
}

TEST_F(TlsTest, TheTokenOfADeviceGoesToNoStranger) {
  const Relay relay({RelayKind::tls, selfSigned({.host = kHost})}, servicePort());
  enrollDevice("from-device");
  const json identity = {
      {"device_token", "token-of-device"}, {"tenant_slug", "tenant"}, {"api_url", urlOf(relay)}};
  writeFile(root_.setup() + "/device-identity.json", identity.dump());
  EXPECT_TRUE(reportAs("from-config", service_->url()).waitForLine("agent=from-config"));
  ASSERT_TRUE(relay.waitForFailures(1));
  EXPECT_EQ(relay.received(), "");
  for (const auto& line : agent().lines()) EXPECT_THAT(line, Not(HasSubstr("token-of-device")));
}

TEST_F(TlsTest, ACertificateThatTurnsBadHoldsUpOnlyWhatComesLater) {
  Relay relay(good(), servicePort());
  const auto transcript = root_.addTranscript("s1", userLine("1", "one"));
  waitForAnotherPass(reportTo(urlOf(relay)));
  relay.show({RelayKind::tls, authority_.issue({.host = kHost, .begin = -2, .end = -1})});
  relay.closeConnections();
  const auto before = relay.received();
  appendToFile(transcript, userLine("2", "two"));
  ASSERT_TRUE(relay.waitForFailures(1));
  EXPECT_EQ(relay.received(), before);
  relay.show(good());
  ASSERT_TRUE(waitForSteps(2));
  waitForAnotherPass(agent());
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "two"));
}

}  // namespace
}  // namespace pelmar::test
