// A service that points elsewhere: nobody goes there, and the key least of all.

#include "platform/http.h"
#include "platform/json.h"
#include "tests/network/network_test.h"
#include "tests/support/raw_server.h"

namespace pelmar::test {
namespace {

using ::testing::ElementsAre;

constexpr std::chrono::seconds kDeadline{60};
constexpr const char* kHost = "service.example";

TEST(Redirect, ToAnotherServerIsNotFollowed) {
  for (const int status : {301, 302, 303, 307, 308}) {
    for (const char* scheme : {"http://", "https://"}) {
      const RawServer target({answering("200 OK", "{}")});
      const auto location = scheme + target.authority() + "/path";
      const RawAnswer elsewhere{.bytes = "HTTP/1.1 " + std::to_string(status) +
                                         " Elsewhere\r\nLocation: " + location +
                                         "\r\nContent-Length: 0\r\n\r\n"};
      const RawServer server({elsewhere, elsewhere});
      HttpRequest request{.url = server.url("/path"),
                          .headers = {{"X-Pel-Key", "key"}},
                          .body = "{}",
                          .deadline = kDeadline};
      HttpClient client;
      EXPECT_EQ(client.send(request).status, status);
      request.body = std::nullopt;
      EXPECT_EQ(client.send(request).status, status);
      EXPECT_EQ(target.connectionCount(), 0U) << location;
    }
  }
}

class RedirectTest : public NetworkTest {};

TEST_F(RedirectTest, AnEventStaysWithTheServiceUntilItTakesIt) {
  const RawServer target({answering("200 OK", kRunAnswer)});
  for (const auto& location :
       {target.url("/api/v1/observe/runs/start/"), "https://" + target.authority() + "/"}) {
    service_->script("/api/v1/observe/runs/start/", service::redirectTo(location, 308), 1);
  }
  root_.addTranscript("s1", userLine("1", "one"));
  reportTo(service_->url());
  ASSERT_TRUE(waitForSteps(1));
  waitForAnotherPass(agent());
  EXPECT_EQ(target.connectionCount(), 0U);
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one"));
  EXPECT_THAT(outcomes(), ElementsAre("308", "308", "200", "200"));
}

TEST_F(RedirectTest, FromHttpsToHttpIsNotFollowed) {
  NEEDS_OWN_NETWORK();
  const CertificateAuthority authority;
  trust(authority.pem());
  setHosts(std::string("127.0.0.1 ") + kHost + '\n');
  const RawServer target({answering("200 OK", kRunAnswer)});
  service_->script("/api/v1/observe/runs/start/", service::redirectTo(target.url("/"), 307), 1);
  const Relay relay({RelayKind::tls, authority.issue({.host = kHost})}, servicePort());
  root_.addTranscript("s1", userLine("1", "one"));
  reportTo("https://" + std::string(kHost) + ':' + std::to_string(relay.port()));
  ASSERT_TRUE(waitForSteps(1));
  EXPECT_EQ(target.connectionCount(), 0U);
  waitForAnotherPass(agent());
  EXPECT_THAT(outcomes(), ElementsAre("307", "200", "200"));
}

TEST_F(RedirectTest, TheTokenOfADeviceStaysWithItsService) {
  const RawServer target({answering("200 OK", R"({"upload_api_key":"k","agent_slug":"s"})")});
  enrollDevice("from-device");
  service_->script("/api/pelmar/*", service::redirectTo(target.url("/"), 302));
  EXPECT_TRUE(reportAs("from-config", service_->url()).waitForLine("agent=from-config"));
  EXPECT_EQ(target.connectionCount(), 0U);
}

}  // namespace
}  // namespace pelmar::test
