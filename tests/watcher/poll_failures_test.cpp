// Transcripts that cannot be read, a cursor that cannot be written, and the two ends of the
// process.

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>

#include "service/http_server.h"
#include "tests/support/refusing_port.h"
#include "tests/support/without_privileges.h"
#include "tests/watcher/poll_test.h"
#include "watcher/audit_files.h"

namespace pelmar {
namespace {

using test::appendToFile;
using test::contentOf;
using test::IsJson;
using test::logOf;
using test::userLine;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PollFailures : public test::PollTest {};

void makeUnreadable(const std::string& path) {
  std::filesystem::permissions(path, std::filesystem::perms::none);
}

TEST_F(PollFailures, UnreadableTranscriptIsSkippedSilentlyAndGetsNoEntry) {
  const auto path = root_.addTranscript("a", userLine("one"));
  test::openToAll(root_.path());
  makeUnreadable(path);
  {
    const test::WithoutPrivileges nobody;
    EXPECT_THAT(poll(), IsEmpty());
  }
  EXPECT_THAT(state_, IsEmpty());
  EXPECT_THAT(paths(), IsEmpty());
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  poll();
  EXPECT_THAT(texts(), ElementsAre("one"));
}

TEST_F(PollFailures, UnreadableTranscriptKeepsItsEntryWhateverItsOffset) {
  const auto path = root_.addTranscript("a", userLine("one"));
  test::openToAll(root_.path());
  makeUnreadable(path);
  for (const char* entry :
       {R"({"offset": 5, "run_id": "R"})", R"({"offset": -1})", R"({"offset": "x"})"}) {
    store(path, entry);
    const test::WithoutPrivileges nobody;
    EXPECT_THAT(poll(), IsEmpty());
    EXPECT_THAT(state_.at(path).values(), IsJson(entry));
  }
}

TEST_F(PollFailures, CursorThatCannotBeSavedIsLoggedAndTheStateKept) {
  const auto path = root_.addTranscript("a", userLine("one"));
  const std::string folder = root_.home() + "/.pelmar";
  writeFile(folder, "in the way of the folder");
  EXPECT_THAT(poll(), ElementsAre(testing::HasSubstr("started per-session run R"),
                                  "error cowork-watcher cursor save failed: Not a directory"));
  EXPECT_EQ(offsetOf(path), std::to_string(userLine("one").size()));
  appendToFile(path, userLine("two"));
  EXPECT_THAT(poll(), ElementsAre("error cowork-watcher cursor save failed: Not a directory"));
  EXPECT_THAT(texts(), ElementsAre("one", "two"));
  EXPECT_THAT(poll(), IsEmpty());

  std::filesystem::remove(folder);
  appendToFile(path, userLine("three"));
  EXPECT_THAT(poll(), IsEmpty());
  EXPECT_THAT(texts(), ElementsAre("one", "two", "three"));
  EXPECT_EQ(savedOffsetOf(path), std::to_string(std::filesystem::file_size(path)));
}

// Two transcripts, and something that happens while the line of the first is being reported.
class PollMeanwhile : public testing::Test {
 protected:
  PollMeanwhile() {
    for (const char* id : {"a", "b"}) root_.addTranscript(id, userLine(id));
    const auto files = auditFiles();
    first_ = files.at(0);
    second_ = files.at(1);
  }

  // What is logged during one pass; `event` comes with every request.
  std::vector<std::string> pollWhile(const std::function<void()>& event) {
    const auto server = service::HttpServer::start(
        0, [&](service::HttpRequest&, const service::HttpServer::BodyReader& readBody) {
          readBody();
          event();
          return service::HttpReply{.body = R"({"run_id": "R"})"};
        });
    if (!server) throw std::runtime_error("no server");
    const ObserveClient client("http://127.0.0.1:" + std::to_string(server->port()), "k");
    return logOf(
        [&] { pollOnce(state_, CursorFile(root_.cursor()), journal_, client, "", false); });
  }

  test::TempRoot root_;
  std::string first_;
  std::string second_;
  CursorState state_;
  Journal journal_{root_.cursor()};
};

TEST_F(PollMeanwhile, TranscriptThatVanishesIsSkippedSilently) {
  EXPECT_THAT(pollWhile([&] { std::filesystem::remove(second_); }),
              ElementsAre(testing::HasSubstr("started per-session run R")));
  EXPECT_THAT(state_, SizeIs(1));
  EXPECT_TRUE(state_.contains(first_));
}

TEST_F(PollMeanwhile, TranscriptThatTurnsIntoAFolderIsLoggedAndSkipped) {
  // With something in it, so that no file system gives it the size 0.
  EXPECT_THAT(pollWhile([&] {
                if (std::filesystem::is_directory(second_)) return;
                std::filesystem::remove(second_);
                writeFile(second_ + "/file-of-some-length", "x");
              }),
              ElementsAre(testing::HasSubstr("started per-session run R"),
                          "error cowork-watcher seek/read failed for " + second_));
  EXPECT_THAT(state_, SizeIs(1));
  EXPECT_THAT(json::parse(contentOf(root_.cursor())), SizeIs(1));
}

TEST_F(PollMeanwhile, CursorIsSavedAfterEachTranscript) {
  json saved;
  pollWhile([&] {
    if (std::filesystem::exists(root_.cursor())) saved = json::parse(contentOf(root_.cursor()));
  });
  EXPECT_THAT(saved, SizeIs(1));
  EXPECT_EQ(saved.at(first_).at("offset"), userLine("a").size());
  EXPECT_THAT(json::parse(contentOf(root_.cursor())), SizeIs(2));
}

TEST_F(PollMeanwhile, WhatIsAppendedToTheTranscriptBeingReadWaitsForTheNextPass) {
  bool isAppended = false;
  pollWhile([&] {
    if (!isAppended) appendToFile(first_, userLine("later"));
    isAppended = true;
  });
  EXPECT_EQ(state_.at(first_).values().at("offset"), userLine("a").size());
  pollWhile([] {});
  EXPECT_EQ(state_.at(first_).values().at("offset"),
            userLine("a").size() + userLine("later").size());
  EXPECT_THAT(state_.at(first_).values().at("seen_keys"), SizeIs(2));
}

// Without a service, whose threads a forked child would lack.
class PollDeathTest : public testing::Test {
 protected:
  void poll() { pollOnce(state_, CursorFile(root_.cursor()), journal_, client_, "", false); }

  test::TempRoot root_;
  test::RefusingPort port_;
  ObserveClient client_{port_.url(), "k"};
  CursorState state_;
  Journal journal_{root_.cursor()};
};

TEST_F(PollDeathTest, NegativeStoredOffsetEndsTheProcess) {
  const auto path = root_.addTranscript("a", userLine("one"));
  for (const char* entry :
       {R"({"offset": -1})", R"({"offset": -1.0})", R"({"offset": -9223372036854775808})"}) {
    state_[path] = CursorEntry(json::parse(entry));
    EXPECT_DEATH(poll(), "Fatal error: a stored offset is negative") << entry;
  }
}

TEST_F(PollDeathTest, NegativeStoredOffsetOfAnEmptyTranscriptEndsTheProcessToo) {
  state_[root_.addTranscript("a", "")] = CursorEntry(json{{"offset", -1}});
  EXPECT_DEATH(poll(), "Fatal error: a stored offset is negative");
}

TEST_F(PollDeathTest, NegativeStoredOffsetOfATranscriptThatIsGoneDoesNot) {
  state_["/gone.jsonl"] = CursorEntry(json{{"offset", -1}});
  poll();
  EXPECT_THAT(state_, SizeIs(1));
}

TEST_F(PollDeathTest, TokenCountBeyondSixtyFourBitsEndsTheProcess) {
  for (const char* count : {"9223372036854775808", "1e300", "-1e300"}) {
    root_.addTranscript("a", R"({"type":"assistant","message":{"usage":{"input_tokens":)" +
                                 std::string(count) + "}}}\n");
    EXPECT_DEATH(poll(), "Fatal error: a count") << count;
  }
}

}  // namespace
}  // namespace pelmar
