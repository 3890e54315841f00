// Name servers that do not answer, that deny, and that come back.

#include "tests/network/name_server.h"
#include "tests/network/network_test.h"

namespace pelmar::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class NameTest : public NetworkTest {
 protected:
  void SetUp() override {
    NEEDS_OWN_NETWORK();
    // A lookup is given up after a second, so that a test sees its end.
    setResolver("nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
  }

  std::string url() const { return "http://service.example:" + std::to_string(relay_.port()); }

 private:
  Relay relay_{{RelayKind::plain}, servicePort()};
};

TEST_F(NameTest, ThatNobodyAnswersForArrivesOnceSomebodyDoes) {
  NameServer names(NameServer::Manner::silent);
  root_.addTranscript("s1", userLine("1", "one") + userLine("2", "two"));
  reportTo(url());
  names.waitForQuestions(1);
  EXPECT_TRUE(service_->requests().empty());
  names.become(NameServer::Manner::answering);
  ASSERT_TRUE(waitForSteps(2));
  waitForAnotherPass(agent());
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one", "two"));
}

TEST_F(NameTest, ThatIsUnknownKeepsNoTranscriptFromItsTurn) {
  NameServer names(NameServer::Manner::denying);
  root_.addTranscript("s1", userLine("1", "one"));
  root_.addTranscript("s2", userLine("2", "two"));
  reportTo(url());
  // One for each transcript.
  ASSERT_TRUE(agent().waitForLine("transport failure after 3 attempts"));
  ASSERT_TRUE(agent().waitForLine("transport failure after 3 attempts"));
  names.become(NameServer::Manner::answering);
  ASSERT_TRUE(waitForSteps(2));
  waitForAnotherPass(agent());
  EXPECT_THAT(textsOfUserMessages(), UnorderedElementsAre("one", "two"));
  const auto all = outcomes();
  EXPECT_THAT(std::vector(all.begin(), all.begin() + 6), Each(StartsWith("0 ")));
}

TEST_F(NameTest, ThatNobodyAnswersForHoldsUpAHeartbeatAndNoMore) {
  NameServer names(NameServer::Manner::silent);
  reportAs("garden", url());
  names.waitForQuestions(1);
  waitForAnotherPass(agent());
  names.become(NameServer::Manner::answering);
  root_.addTranscript("s1", userLine("1", "one"));
  ASSERT_TRUE(waitForSteps(1));
  EXPECT_THAT(textsOfUserMessages(), ElementsAre("one"));
}

}  // namespace
}  // namespace pelmar::test
