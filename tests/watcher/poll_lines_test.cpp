// What becomes of each kind of line, and of bytes that are no text.

#include <filesystem>
#include <string>

#include "tests/watcher/poll_test.h"

namespace pelmar {
namespace {

using test::appendToFile;
using test::IsJson;
using test::kSteps;
using test::userLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PollLines : public test::PollTest {
 protected:
  void SetUp() override {
    test::PollTest::SetUp();
    path_ = root_.addTranscript("a", userLine("first"));
    poll();
  }

  // What is logged when `content` is appended and a pass made.
  std::vector<std::string> pollWith(const std::string& content) {
    appendToFile(path_, content);
    return poll();
  }

  std::string malformed() const {
    return "error cowork-watcher skipping malformed line in " + path_;
  }

  std::string size() const { return std::to_string(std::filesystem::file_size(path_)); }

  std::string path_;
};

TEST_F(PollLines, BlankLinesArePassedSilently) {
  // Tab, no-break space, Ogham space mark, em space, ideographic space.
  for (const std::string blank :
       {"", " ", "    ", "\t", " \t ", "\u00A0", "\u1680", "\u2003", "\u3000", "\u3000 \t\u00A0"}) {
    EXPECT_THAT(pollWith(blank + "\n"), IsEmpty()) << blank;
    EXPECT_EQ(offsetOf(path_), size()) << blank;
  }
  EXPECT_THAT(pollWith("\n\n \n"), IsEmpty());
  EXPECT_THAT(texts(), ElementsAre("first"));
}

TEST_F(PollLines, LinesThatAreNoObjectsAreSkippedForGood) {
  const std::string rows[] = {"{broken",
                              "[1, 2]",
                              "[{\"type\": \"user\"}]",
                              "[]",
                              "7",
                              "-1.5",
                              "true",
                              "false",
                              "null",
                              "\"text\"",
                              "{} {}",
                              "{\"a\": 1,}",
                              "{'a': 1}",
                              "{\"a\": NaN}",
                              "}",
                              "\r",
                              " \r",
                              "\v",
                              "\f",
                              "\u200B",
                              "\u2028",
                              "\u0085",
                              "// {}",
                              "{\"a\": \"\t\"}"};
  for (const auto& line : rows) {
    EXPECT_THAT(pollWith(line + "\n"), ElementsAre(malformed())) << line;
    EXPECT_EQ(offsetOf(path_), size()) << line;
    EXPECT_THAT(poll(), IsEmpty()) << line;
  }
  EXPECT_THAT(texts(), ElementsAre("first"));
}

TEST_F(PollLines, EveryMalformedLineIsLoggedAndTheOthersReported) {
  EXPECT_THAT(pollWith("{\n" + userLine("a") + "[]\n\n" + userLine("b") + "7\n"),
              ElementsAre(malformed(), malformed(), malformed()));
  EXPECT_THAT(texts(), ElementsAre("first", "a", "b"));
  EXPECT_EQ(offsetOf(path_), size());
}

TEST_F(PollLines, ObjectsAreReportedWithSpacesAndCarriageReturnsAroundThem) {
  std::string line = userLine("a");
  line.pop_back();
  EXPECT_THAT(pollWith(line + "\r\n"), IsEmpty());
  EXPECT_EQ(offsetOf(path_), size());
  std::string padded = " \t";
  padded += userLine("b");
  padded.pop_back();
  EXPECT_THAT(pollWith(padded + "  \r\n"), IsEmpty());
  EXPECT_EQ(offsetOf(path_), size());
  EXPECT_THAT(texts(), ElementsAre("first", "a", "b"));
}

TEST_F(PollLines, ObjectOfNoKindIsAnUnknownEvent) {
  EXPECT_THAT(pollWith("{}\n"), IsEmpty());
  EXPECT_THAT(bodies(kSteps), SizeIs(2));
  EXPECT_EQ(bodies(kSteps).back().at("steps").at(0).at("step_name"), "cowork:unknown");
}

TEST_F(PollLines, LineIsAsDeepAsTheLimitAllows) {
  const auto line = [](std::size_t levels) {
    return R"({"type":"system","subtype":"permission_request","uuid":"U","tool_input":)" +
           std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}\n";
  };
  EXPECT_THAT(pollWith(line(513)), ElementsAre(malformed()));
  EXPECT_THAT(bodies(kSteps), SizeIs(1));
  EXPECT_THAT(pollWith(line(512)), IsEmpty());
  ASSERT_THAT(bodies(kSteps), SizeIs(2));
  EXPECT_EQ(bodies(kSteps).back().at("steps").at(0).at("output").at("tool_input").dump(),
            std::string(511, '[') + std::string(511, ']'));
  EXPECT_EQ(offsetOf(path_), size());
}

TEST_F(PollLines, NulByteMakesALineMalformed) {
  using namespace std::string_literals;
  EXPECT_THAT(pollWith("{\"type\":\"user\"}\0\n"s), ElementsAre(malformed()));
  EXPECT_THAT(pollWith("{\"type\":\"us\0er\"}\n"s), ElementsAre(malformed()));
  EXPECT_THAT(pollWith("\0\n"s), ElementsAre(malformed()));
  EXPECT_EQ(offsetOf(path_), size());
  EXPECT_THAT(pollWith(userLine("a")), IsEmpty());
  EXPECT_THAT(texts(), ElementsAre("first", "a"));
}

TEST_F(PollLines, NumbersKeepTheirValues) {
  EXPECT_THAT(pollWith(R"({"type":"rate_limit_event","uuid":"U","resets_at":50.0,)"
                       R"("tokens_used":18446744073709551615,"tokens_remaining":-1})"
                       "\n"),
              IsEmpty());
  const json output = bodies(kSteps).back().at("steps").at(0).at("output");
  EXPECT_EQ(output.at("resets_at").dump(), "50.0");
  EXPECT_EQ(output.at("tokens_used").dump(), "18446744073709551615");
  EXPECT_EQ(output.at("tokens_remaining").dump(), "-1");
}

TEST_F(PollLines, IntegerBeyondSixtyFourBitsLosesNoLine) {
  EXPECT_THAT(pollWith(R"({"type":"rate_limit_event","uuid":"U",)"
                       R"("resets_at":123456789012345678901234567890})"
                       "\n"),
              IsEmpty());
  EXPECT_EQ(bodies(kSteps).back().at("steps").at(0).at("output").at("resets_at"),
            123456789012345678901234567890.0);
  EXPECT_EQ(offsetOf(path_), size());
}

TEST_F(PollLines, OfDuplicateKeysTheLastWins) {
  EXPECT_THAT(pollWith(R"({"uuid":"a","type":"system","type":"user",)"
                       R"("message":{"content":"one","content":"two"},"uuid":"b"})"
                       "\n"),
              IsEmpty());
  EXPECT_THAT(texts(), ElementsAre("first", "two"));
  EXPECT_EQ(state_.at(path_).values().at("seen_keys").back(), "b:user_message:");
}

// A user line whose message holds `bytes` as they are.
std::string lineWith(const std::string& bytes) {
  return R"({"type":"user","uuid":"U)" + std::to_string(bytes.size()) +
         R"(","message":{"content":"<)" + bytes + ">\"}}\n";
}

TEST_F(PollLines, IllFormedSequencesAreReplacedAndTheLineReported) {
  EXPECT_THAT(pollWith(lineWith("\xFF")), IsEmpty());
  EXPECT_THAT(pollWith(lineWith("\xE2\x82")), IsEmpty());
  EXPECT_THAT(pollWith(lineWith("\xC0\x80\xF0\x9F\x98")), IsEmpty());
  EXPECT_THAT(pollWith(lineWith("\xED\xA0\x80")), IsEmpty());
  EXPECT_THAT(texts(), ElementsAre("first", "<\uFFFD>", "<\uFFFD>", "<\uFFFD\uFFFD\uFFFD>",
                                   "<\uFFFD\uFFFD\uFFFD>"));
  EXPECT_EQ(offsetOf(path_), size());
}

TEST_F(PollLines, IllFormedSequenceOutsideOfTextsIsMalformed) {
  EXPECT_THAT(pollWith("\xFF\n"), ElementsAre(malformed()));
  EXPECT_THAT(pollWith("{\"a\":1}\xFF\n"), ElementsAre(malformed()));
  EXPECT_EQ(offsetOf(path_), size());
}

TEST_F(PollLines, OffsetOfAFailedLineCountsThreeBytesForEachIllFormedSequenceBeforeIt) {
  const auto start = std::stoul(size());
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(200), 1);
  service_->script(kSteps, service::answerWith(404));
  const std::string line = lineWith("\xFF\xFE");
  pollWith(line + userLine("failing") + userLine("behind"));
  EXPECT_EQ(offsetOf(path_), std::to_string(start + line.size() + 4));
}

TEST_F(PollLines, OffsetNeverExceedsTheEndOfTheLastLine) {
  const std::string line = lineWith("\xFF\xFE\xFD");
  const auto end = std::stoul(size()) + line.size();
  EXPECT_THAT(pollWith(line + "{\"unfinished"), IsEmpty());
  EXPECT_EQ(offsetOf(path_), std::to_string(end));
}

TEST_F(PollLines, UnfinishedLineCountsThreeBytesForEachIllFormedSequence) {
  const std::string before = "{}\n";
  const auto end = std::stoul(size()) + before.size();
  EXPECT_THAT(pollWith(before + "{\"\xFF"), IsEmpty());
  EXPECT_EQ(offsetOf(path_), std::to_string(end - 2));
}

TEST_F(PollLines, OffsetNeverGoesBackBehindAnUnfinishedCharacter) {
  const auto start = size();
  for (const std::string piece : {"\xF0", "\x9F", "\x98"}) {
    EXPECT_THAT(pollWith(piece), IsEmpty());
    EXPECT_EQ(offsetOf(path_), start);
  }
  EXPECT_THAT(pollWith("\x80\n"), ElementsAre(malformed()));
  EXPECT_EQ(offsetOf(path_), size());
}

TEST_F(PollLines, CharacterInTwoPiecesArrivesWhole) {
  const std::string line = userLine("a😀b");
  for (std::size_t cut = line.find("😀") + 1; cut < line.find("😀") + 4; ++cut) {
    const auto path = root_.addTranscript('b' + std::to_string(cut), line.substr(0, cut));
    poll();
    appendToFile(path, line.substr(cut));
    poll();
  }
  EXPECT_THAT(texts(), ElementsAre("first", "a😀b", "a😀b", "a😀b"));
}

TEST_F(PollLines, CountThatIsNoIntegerIsReportedAsNone) {
  EXPECT_THAT(pollWith(R"({"type":"assistant","uuid":"U","message":{"usage":)"
                       R"({"input_tokens":"x","output_tokens":9223372036854775807}}})"
                       "\n"),
              IsEmpty());
  EXPECT_THAT(bodies("/api/v1/observe/runs/R/llm-calls/").at(0).at("calls").at(0).at("tokens_in"),
              IsJson("0"));
}

}  // namespace
}  // namespace pelmar
