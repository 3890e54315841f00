// How far a transcript is read, where reading goes on, and what is saved of it.

#include <filesystem>
#include <string>

#include "tests/watcher/poll_test.h"
#include "watcher/audit_files.h"

namespace pelmar {
namespace {

using test::appendToFile;
using test::contentOf;
using test::IsJson;
using test::kSteps;
using test::userLine;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PollOffsets : public test::PollTest {};

// A line of `size` bytes and its line feed, which is no event.
std::string silentLine(std::size_t size) {
  const std::string begin = R"({"type":"user","x":")";
  return begin + std::string(size - begin.size() - 2, 'x') + "\"}\n";
}

TEST_F(PollOffsets, UnfinishedLineIsReadAgainWhenItIsFinished) {
  const std::string line = R"({"type":"user","x":"12345678"})";  // 30 bytes
  ASSERT_EQ(line.size(), 30U);
  const auto path = root_.addTranscript("a", silentLine(99));
  poll();
  EXPECT_EQ(offsetOf(path), "100");
  appendToFile(path, line + "\n" + R"({"type":"user","uui)");
  ASSERT_EQ(std::filesystem::file_size(path), 150U);
  EXPECT_THAT(poll(), IsEmpty());
  EXPECT_EQ(offsetOf(path), "131");
  appendToFile(path, R"(d":"U","message":{"content":"whole"}})"
                     "\n");
  poll();
  EXPECT_THAT(texts(), ElementsAre("whole"));
  EXPECT_EQ(offsetOf(path), std::to_string(std::filesystem::file_size(path)));
}

TEST_F(PollOffsets, NewTranscriptIsReadFromItsBeginAndSaved) {
  const std::string content = userLine("one") + userLine("two");
  const auto path = root_.addTranscript("a", content);
  poll();
  EXPECT_THAT(texts(), ElementsAre("one", "two"));
  EXPECT_THAT(state_.at(path).values(),
              IsJson(json({{"offset", content.size()},
                           {"run_id", "R"},
                           {"workflow_id", "W"},
                           {"step_position", 2},
                           {"_last_user_message", "two"},
                           {"seen_keys", {"one:user_message:", "two:user_message:"}}})
                         .dump()));
  EXPECT_EQ(json::parse(contentOf(root_.cursor())).at(path).dump(),
            state_.at(path).values().dump());
}

TEST_F(PollOffsets, NewTranscriptWithoutACompleteLineGetsAFreshEntry) {
  const auto path = root_.addTranscript("a", R"({"type":)");
  EXPECT_THAT(poll(), IsEmpty());
  EXPECT_THAT(state_.at(path).values(), IsJson(R"({"offset": 0, "run_id": null,
                                                 "workflow_id": null, "step_position": 0})"));
  EXPECT_EQ(savedOffsetOf(path), "0");
}

TEST_F(PollOffsets, EmptyTranscriptGetsItsEntryOnceItHoldsData) {
  const auto path = root_.addTranscript("a", "");
  EXPECT_THAT(poll(), IsEmpty());
  EXPECT_THAT(state_, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(root_.cursor()));
  appendToFile(path, userLine("one"));
  poll();
  EXPECT_THAT(texts(), ElementsAre("one"));
  EXPECT_EQ(offsetOf(path), std::to_string(userLine("one").size()));
}

TEST_F(PollOffsets, TranscriptThatDidNotGrowIsNeitherReadNorSaved) {
  const auto path = root_.addTranscript("a", userLine("one"));
  poll();
  std::filesystem::remove(root_.cursor());
  EXPECT_THAT(poll(), IsEmpty());
  EXPECT_THAT(texts(), ElementsAre("one"));
  EXPECT_FALSE(std::filesystem::exists(root_.cursor()));
}

TEST_F(PollOffsets, StoredOffsetDecidesWhereReadingBegins) {
  const std::string content = userLine("one") + userLine("two") + userLine("three");
  const auto line = static_cast<int>(userLine("one").size());
  const int size = static_cast<int>(content.size());
  const struct {
    std::string entry;
    std::vector<std::string> texts;
  } rows[] = {
      {R"({"offset":)" + std::to_string(line) + "}", {"two", "three"}},
      {R"({"offset":)" + std::to_string(2 * line) + ".0}", {"three"}},
      {R"({"offset":0})", {"one", "two", "three"}},
      {R"({})", {"one", "two", "three"}},
      {R"({"offset":null})", {"one", "two", "three"}},
      {R"({"offset":"50"})", {"one", "two", "three"}},
      {R"({"offset":50.5})", {"one", "two", "three"}},
      {R"({"offset":[50]})", {"one", "two", "three"}},
      {R"({"offset":true})", {"one", "two", "three"}},
      {R"({"offset":18446744073709551615})", {"one", "two", "three"}},
      {R"({"offset":)" + std::to_string(size) + "}", {}},
      {R"({"offset":)" + std::to_string(size) + ".0}", {}},
      {R"({"offset":)" + std::to_string(size + 1) + "}", {}},
      {R"({"offset":9223372036854775807})", {}},
  };
  const auto path = root_.addTranscript("a", content);
  for (const auto& row : rows) {
    const auto before = texts().size();
    store(path, row.entry);
    EXPECT_THAT(poll(), SizeIs(row.texts.empty() ? 0 : 1)) << row.entry;  // the run's start
    auto sent = texts();
    sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(sent, row.texts) << row.entry;
    if (row.texts.empty()) {
      EXPECT_THAT(state_.at(path).values(), IsJson(row.entry));
    } else {
      EXPECT_EQ(offsetOf(path), std::to_string(size)) << row.entry;
    }
  }
}

TEST_F(PollOffsets, EmptyTranscriptWithAnUnusableOffsetIsLeftAlone) {
  const auto path = root_.addTranscript("a", "");
  store(path, R"({"offset": "x"})");
  EXPECT_THAT(poll(), IsEmpty());
  EXPECT_THAT(state_.at(path).values(), IsJson(R"({"offset": "x"})"));
  EXPECT_FALSE(std::filesystem::exists(root_.cursor()));
}

TEST_F(PollOffsets, OffsetInTheMiddleOfALineMakesItMalformed) {
  const auto path = root_.addTranscript("a", userLine("one") + userLine("two"));
  store(path, R"({"offset": 5})");
  EXPECT_THAT(poll(), ElementsAre("error cowork-watcher skipping malformed line in " + path,
                                  testing::HasSubstr("started per-session run R")));
  EXPECT_THAT(texts(), ElementsAre("two"));
}

TEST_F(PollOffsets, TruncatedTranscriptIsReadOnceItExceedsItsOldSize) {
  const auto path = root_.addTranscript("a", silentLine(499));
  poll();
  ASSERT_EQ(offsetOf(path), "500");
  const auto expectNothingRead = [&] {
    std::filesystem::remove(root_.cursor());
    EXPECT_THAT(poll(), IsEmpty());
    EXPECT_EQ(offsetOf(path), "500");
    EXPECT_FALSE(std::filesystem::exists(root_.cursor()));
  };
  writeFile(path, userLine("new"));
  std::filesystem::resize_file(path, 200);
  expectNothingRead();
  writeFile(path, userLine("new") + silentLine(498 - userLine("new").size()));
  ASSERT_EQ(std::filesystem::file_size(path), 499U);
  expectNothingRead();
  appendToFile(path, "\n");
  expectNothingRead();
  appendToFile(path, userLine("later"));
  poll();
  EXPECT_THAT(texts(), ElementsAre("later"));
  EXPECT_EQ(offsetOf(path), std::to_string(500 + userLine("later").size()));
}

TEST_F(PollOffsets, FailedLineHoldsUpAllBehindIt) {
  const auto path = root_.addTranscript(
      "a", userLine("one") + userLine("two") + " \n[malformed]\n" + userLine("three") + "{");
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(200), 1);
  service_->script(kSteps, service::answerWith(404), 1);
  SetUp();
  EXPECT_THAT(poll(), ElementsAre(testing::HasSubstr("started per-session run R"),
                                  testing::HasSubstr("4xx 404 on ")));
  EXPECT_THAT(texts(), ElementsAre("one", "two"));
  EXPECT_EQ(offsetOf(path), std::to_string(userLine("one").size()));
  EXPECT_EQ(savedOffsetOf(path), offsetOf(path));
  const json saved = json::parse(contentOf(root_.cursor())).at(path);
  EXPECT_EQ(saved.at("run_id"), "R");
  EXPECT_EQ(saved.at("step_position"), 2);
  EXPECT_EQ(saved.at("_last_user_message"), "two");
  EXPECT_THAT(saved.at("seen_keys"), IsJson(R"(["one:user_message:"])"));

  EXPECT_THAT(poll(), ElementsAre("error cowork-watcher skipping malformed line in " + path));
  EXPECT_THAT(texts(), ElementsAre("one", "two", "two", "three"));
  EXPECT_EQ(offsetOf(path), std::to_string(std::filesystem::file_size(path) - 1));
}

TEST_F(PollOffsets, FailedLineHoldsUpItsOwnTranscriptOnly) {
  for (const char* id : {"a", "b", "c"}) root_.addTranscript(id, userLine(id));
  const auto files = auditFiles();
  ASSERT_THAT(files, SizeIs(3));
  service_->clearScripts();
  service_->script(kSteps, service::answerWith(200), 1);
  service_->script(kSteps, service::answerWith(404), 1);
  SetUp();
  poll();
  EXPECT_EQ(offsetOf(files[0]), std::to_string(userLine("a").size()));
  EXPECT_EQ(offsetOf(files[1]), "0");
  EXPECT_EQ(offsetOf(files[2]), std::to_string(userLine("c").size()));
  for (const auto& path : files) EXPECT_EQ(savedOffsetOf(path), offsetOf(path));
}

TEST_F(PollOffsets, TranscriptsAreReadInTheOrderOfTheWalk) {
  std::vector<std::string> expected;
  for (const char* id : {"b", "d", "a", "c"}) root_.addTranscript(id, userLine(id));
  for (const auto& path : auditFiles()) expected.push_back(std::filesystem::path(path).stem());
  ASSERT_THAT(expected, SizeIs(4));
  poll();
  EXPECT_EQ(texts(), expected);
}

TEST_F(PollOffsets, KnownTranscriptKeepsAllThatIsRememberedOfIt) {
  const auto path = root_.addTranscript("a", "{}\n");
  store(path, R"({"offset": 1.0, "run_id": "R", "workflow_id": "W", "step_position": 7,
                  "seen_keys": ["k"], "daily_session_date": "D", "_last_user_message": "t",
                  "run_completed": true, "further": {"a": 1.0}})");
  poll();
  const char* const expected = R"({
      "offset": 3, "run_id": "R", "workflow_id": "W", "step_position": 7, "seen_keys": ["k"],
      "daily_session_date": "D", "_last_user_message": "t", "run_completed": true,
      "further": {"a": 1.0}})";
  EXPECT_THAT(state_.at(path).values(), IsJson(expected));
  EXPECT_THAT(json::parse(contentOf(root_.cursor())).at(path), IsJson(expected));
}

TEST_F(PollOffsets, EntriesOfOtherTranscriptsAreKept) {
  root_.addTranscript("a", userLine("one"));
  store("/gone.jsonl", R"({"offset": 3, "further": 1.0})");
  poll();
  EXPECT_THAT(json::parse(contentOf(root_.cursor())).at("/gone.jsonl"),
              IsJson(R"({"offset": 3, "further": 1.0})"));
}

TEST_F(PollOffsets, VerbosePassTellsHowManyTranscriptsThereAre) {
  EXPECT_THAT(poll(true), ElementsAre("debug cowork-watcher found 0 audit.jsonl files"));
  EXPECT_THAT(poll(false), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(root_.cursor()));
  root_.addTranscript("a", "");
  root_.addTranscript("b", " \n");
  EXPECT_THAT(poll(true), ElementsAre("debug cowork-watcher found 2 audit.jsonl files"));
}

}  // namespace
}  // namespace pelmar
