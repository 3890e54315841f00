// What holds for any transcript, whatever comes between its passes.

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "tests/support/for_each_seed.h"
#include "tests/watcher/poll_test.h"
#include "watcher/line_splitting.h"

namespace pelmar {
namespace {

using test::appendToFile;
using test::forEachSeed;
using test::kSteps;
using test::RandomInput;

using Pieces = std::vector<std::string>;
using Requests = std::vector<std::pair<std::string, std::string>>;  // paths and bodies

constexpr std::uint64_t kCases = 40;
constexpr std::size_t kMostCuts = 5;

class AnyTranscript : public test::PollTest {
 protected:
  // All that is sent of a new transcript that comes in these pieces, with a pass after each and,
  // before that, `between`.
  template <typename Between>
  Requests requestsOf(const Pieces& pieces, Between between) {
    const auto path = root_.addTranscript("t", "");
    state_.clear();
    for (const auto& piece : pieces) {
      appendToFile(path, piece);
      between();
      poll();
    }
    Requests sent;
    const auto requests = service_->requests();
    for (; taken_ < requests.size(); ++taken_) {
      sent.emplace_back(requests[taken_].request.path, requests[taken_].request.body);
    }
    return sent;
  }

  Requests requestsOf(const Pieces& pieces) {
    return requestsOf(pieces, [] {});
  }

  void restart() {
    state_ = CursorFile(root_.cursor()).load().state;
    Journal journal(root_.cursor());
    resume(state_, journal);
  }

  // The next request for a step is refused, and with it its line until the next pass.
  void refuseOneStep() {
    service_->clearScripts();
    service_->script(kSteps, service::answerWith(400), 1);
    SetUp();
  }

 private:
  std::size_t taken_ = 0;
};

// The steps of `requests` without their positions. Of a step that was refused only the last try.
std::vector<std::string> stepsIn(const Requests& requests) {
  std::vector<std::string> steps;
  for (const auto& [path, body] : requests) {
    if (path != kSteps) continue;
    json step = json::parse(body).at("steps").at(0);
    step.erase("position");
    const std::string text = step.dump();
    if (steps.empty() || steps.back() != text) steps.push_back(text);
  }
  return steps;
}

TEST_F(AnyTranscript, IsReadUpToItsLastLineFeed) {
  forEachSeed(kCases, [&](RandomInput input) {
    const std::string text = input.transcript(1 + input.below(6));
    const auto path = root_.addTranscript("t", "");
    state_.clear();
    std::string written;
    for (const auto& piece : input.pieces(text, 2)) {
      appendToFile(path, piece);
      written += piece;
      poll();
      if (!isUtf8(written)) continue;  // a character that is cut is counted as its replacement
      const auto end = std::to_string(written.rfind('\n') + 1);
      EXPECT_EQ(offsetOf(path), written.empty() ? "none" : end) << written;
    }
  });
}

TEST_F(AnyTranscript, MakesTheSameRequestsInPiecesAsWhole) {
  forEachSeed(kCases, [&](RandomInput input) {
    const std::string text = input.transcript(input.below(12));
    const Requests whole = requestsOf({text});
    EXPECT_EQ(requestsOf(input.pieces(text, kMostCuts)), whole) << text;
  });
}

TEST_F(AnyTranscript, MakesTheSameRequestsWhenTheAgentIsRestartedBetweenPasses) {
  forEachSeed(kCases, [&](RandomInput input) {
    const std::string text = input.transcript(input.below(12));
    const Requests whole = requestsOf({text});
    const auto restartedNowAndThen = [&] {
      // Before the first save there is nothing to go on from.
      if (!state_.empty() && input.isOneIn(2)) restart();
    };
    EXPECT_EQ(requestsOf(input.pieces(text, kMostCuts), restartedNowAndThen), whole) << text;
  });
}

TEST_F(AnyTranscript, LosesAndDoublesNoStepWhenSomeAreRefused) {
  forEachSeed(kCases, [&](RandomInput input) {
    const std::string text = input.transcript(input.below(12)) + '\n';
    const auto whole = stepsIn(requestsOf({text}));
    Pieces pieces = input.pieces(text, kMostCuts);
    pieces.emplace_back();  // for what the last refusal leaves
    std::size_t left = pieces.size();
    const auto refusedNowAndThen = [&] {
      if (--left > 0 && input.isOneIn(2)) refuseOneStep();
      if (left == 0) {
        service_->clearScripts();
        SetUp();
      }
    };
    EXPECT_EQ(stepsIn(requestsOf(pieces, refusedNowAndThen)), whole) << text;
  });
}

TEST(AnyText, IsItsLinesAndItsPartialLine) {
  forEachSeed(2000, [](RandomInput input) {
    const std::string text = input.bytes(60);
    std::string joined;
    const auto partial = splitLinesKeepPartial(text, [&](std::string_view line) {
      EXPECT_EQ(line.find('\n'), line.npos);
      joined.append(line) += '\n';
      return true;
    });
    EXPECT_EQ(partial.find('\n'), partial.npos);
    EXPECT_EQ(joined.append(partial), text);
  });
}

}  // namespace
}  // namespace pelmar
