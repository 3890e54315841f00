// However a transcript arrives, the same is reported of it.

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/watcher/poll_test.h"

namespace pelmar {
namespace {

using test::appendToFile;
using test::kStart;
using test::userLine;

constexpr unsigned kSeed = 20260304;

using Requests = std::vector<std::pair<std::string, std::string>>;  // paths and bodies

class PollPieces : public test::PollTest {
 protected:
  // All that is sent of a transcript that comes in these pieces, with a pass after each.
  Requests requestsOf(const std::vector<std::string>& pieces) {
    const auto before = service_->requests().size();
    const auto path = root_.addTranscript('t' + std::to_string(before), "");
    for (const auto& piece : pieces) {
      appendToFile(path, piece);
      poll();
    }
    Requests sent;
    const auto requests = service_->requests();
    for (auto i = before; i < requests.size(); ++i) {
      sent.emplace_back(requests[i].request.path, requests[i].request.body);
    }
    return sent;
  }
};

// Lines of every fate: reported with one request or several, silent, blank and malformed.
std::vector<std::string> someLines() {
  std::vector<std::string> lines;
  for (int i = 0; i < 5; ++i) {
    const std::string number = std::to_string(i);
    lines.push_back(userLine("question " + number + " é😀\u3000"));
    lines.push_back("\n");
    lines.push_back(R"({"type":"assistant","uuid":"A)" + number +
                    R"(","timestamp":"T","message":)"
                    R"({"content":[{"type":"text","text":"answer 👩‍👧"},{"type":"tool_use",)"
                    R"("id":"x","name":"Read","input":{"n":1.0}}],)"
                    R"("usage":{"input_tokens":3,"output_tokens":4}}})"
                    "\r\n");
    lines.push_back("{\"malformed é\n");
    lines.push_back(R"({"type":"system","subtype":"status","timestamp":"T"})"
                    "\n");
    lines.push_back(R"({"type":"user","timestamp":"T","uuid":"N"})"
                    "\n");
    lines.push_back(" \t\u3000\n");
    lines.push_back(R"({"type":"result","subtype":"success","timestamp":"T","uuid":"R)" + number +
                    "\"}\n");
  }
  return lines;
}

std::string joined(const std::vector<std::string>& pieces) {
  std::string text;
  for (const auto& piece : pieces) text += piece;
  return text;
}

TEST_F(PollPieces, OfWholeLinesMakeTheSameRequestsAsTheWhole) {
  const auto lines = someLines();
  const Requests whole = requestsOf({joined(lines)});
  // Four steps and a call of each round, one status, and the begin and the end of the run.
  ASSERT_EQ(whole.size(), 5U * 5U + 1U + 2U);
  EXPECT_EQ(whole.front().first, kStart);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 10; ++round) {
    std::vector<std::string> pieces(1);
    for (const auto& line : lines) {
      if (random() % 4 == 0) pieces.emplace_back();
      pieces.back() += line;
    }
    EXPECT_EQ(requestsOf(pieces), whole) << "round " << round;
  }
}

TEST_F(PollPieces, OfAnyBytesMakeTheSameRequestsAsTheWhole) {
  const std::string text = joined(someLines());
  const Requests whole = requestsOf({text});
  std::mt19937 random(kSeed);
  for (int round = 0; round < 5; ++round) {
    std::vector<std::string> pieces(1);
    for (const char byte : text) {
      if (random() % 40 == 0) pieces.emplace_back();
      pieces.back() += byte;
    }
    EXPECT_EQ(requestsOf(pieces), whole) << "round " << round;
  }
}

TEST_F(PollPieces, OfOneByteMakeTheSameRequestsAsTheWhole) {
  const std::string text = userLine("é😀") + userLine("\u3000");
  std::vector<std::string> bytes;
  for (const char byte : text) bytes.emplace_back(1, byte);
  EXPECT_EQ(requestsOf(bytes), requestsOf({text}));
}

}  // namespace
}  // namespace pelmar
