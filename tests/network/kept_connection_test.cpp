// A service that closes kept connections at any moment: every attempt is one request, and an event
// goes out again only when it was not taken.

#include <algorithm>

#include "platform/json.h"
#include "tests/network/network_test.h"
#include "tests/support/raw_server.h"

namespace pelmar::test {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::StartsWith;

std::vector<std::string> textsOf(const std::vector<RawRequest>& requests) {
  std::vector<std::string> texts;
  for (const auto& request : requests) {
    const json body = json::parse(request.bytes.substr(request.bytes.find("\r\n\r\n") + 4));
    texts.push_back(body.contains("steps") ? body["steps"][0]["output"]["text"].get<std::string>()
                                           : "run");
  }
  return texts;
}

class KeptConnectionTest : public NetworkTest {
 protected:
  // What a service that ends its connections by `after` got, attempt by attempt.
  void expectOneRequestAnAttempt(After after) {
    const RawServer server({answering("200 OK", kRunAnswer, after),
                            answering("200 OK", "{}"),
                            {.after = after},  // the kept one, when its next request is there
                            answering("200 OK", "{}", after),
                            answering("200 OK", "{}", after)});
    root_.addTranscript("s1", userLine("1", "one") + userLine("2", "two") + userLine("3", "three"));
    reportTo(server.url());
    server.waitUntilClosed(4);
    waitForAnotherPass(agent());
    EXPECT_THAT(textsOf(server.requests()), ElementsAre("run", "one", "two", "two", "three"));
    // More of them fail when a request crosses with the end of its connection; none is taken then.
    auto all = outcomes();
    EXPECT_THAT(all, AllOf(Contains(StartsWith("0 ")), Each(AnyOf("200", StartsWith("0 ")))));
    EXPECT_EQ(std::count(all.begin(), all.end(), "200"), 4);
  }
};

TEST_F(KeptConnectionTest, ThatIsFinishedCostsAnAttemptAtMost) {
  expectOneRequestAnAttempt(After::close);
}

TEST_F(KeptConnectionTest, ThatIsResetCostsAnAttemptAtMost) {
  expectOneRequestAnAttempt(After::reset);
}

}  // namespace
}  // namespace pelmar::test
