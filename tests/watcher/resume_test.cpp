// An agent that is killed while a request is on its way, and the one that is started next.

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/json.h"
#include "service/http_server.h"
#include "tests/support/temp_root.h"
#include "watcher/audit_files.h"
#include "watcher/poll_pass.h"

namespace pelmar {
namespace {

using test::contentOf;
using test::writeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

// The line of a user message, an assistant message with these tools, and so on. `uuid` makes the
// keys of its events.
std::string lineOf(const std::string& type, const std::string& uuid, const json& more) {
  json line{{"type", type}, {"uuid", uuid}, {"timestamp", "T"}, {"session_id", "S"}};
  line.update(more);
  return line.dump() + '\n';
}

std::string user(const std::string& text) {
  return lineOf("user", text, {{"message", {{"content", text}}}});
}

std::string assistantWithTools(const std::string& uuid, int tools) {
  json content = json::array({{{"type", "text"}, {"text", uuid}}});
  for (int tool = 0; tool < tools; ++tool) {
    content.push_back({{"type", "tool_use"},
                       {"id", uuid + std::to_string(tool)},
                       {"name", "Read"},
                       {"input", json::object()}});
  }
  return lineOf("assistant", uuid,
                {{"message",
                  {{"model", "m"},
                   {"content", content},
                   {"usage", {{"input_tokens", 3}, {"output_tokens", 5}}}}}});
}

struct Request {
  std::string path;
  std::string body;
  bool operator==(const Request&) const = default;
};

void PrintTo(const Request& request, std::ostream* out) { *out << request.path << request.body; }

// The two files of an agent at one moment. The cursor file is kept by a second link, since the
// journal tells it from a copy.
class Remains {
 public:
  Remains(const std::string& cursor, std::string link) : link_(std::move(link)) {
    if (fs::exists(cursor)) fs::create_hard_link(cursor, link_);
    const auto journal = journalPath(cursor);
    if (fs::exists(journal)) journal_ = contentOf(journal);
  }

  void putBack(const std::string& cursor) const {
    fs::remove_all(fs::path(cursor).parent_path());
    if (!journal_.empty()) writeFile(journalPath(cursor), journal_);
    fs::create_directories(fs::path(cursor).parent_path());
    if (fs::exists(link_)) fs::rename(link_, cursor);
  }

 private:
  std::string link_;
  std::string journal_{};
};

class Resume : public testing::Test {
 protected:
  Resume()
      : server_(service::HttpServer::start(0, [this](
                                                  service::HttpRequest& request,
                                                  const service::HttpServer::BodyReader& readBody) {
          readBody();
          received_.push_back({request.path, request.body});
          remains_.emplace_back(root_.cursor(), root_.path() + "/link" + std::to_string(links_++));
          if (meanwhile_) meanwhile_();
          return service::HttpReply{.body = R"({"run_id": "R", "workflow_id": "W"})"};
        })) {
    if (!server_) throw std::runtime_error("no server");
  }

  // The requests of an agent that is started on what is there and makes one pass.
  std::vector<Request> startAgent() {
    received_.clear();
    CursorState state = CursorFile(root_.cursor()).load().state;
    Journal journal(root_.cursor());
    resume(state, journal);
    testing::internal::CaptureStderr();
    pollOnce(state, CursorFile(root_.cursor()), journal, client(), "", false);
    testing::internal::GetCapturedStderr();
    return received_;
  }

  // What a start without --from-start does before its first pass.
  void startAsUsual() {
    CursorState state = CursorFile(root_.cursor()).load().state;
    Journal journal(root_.cursor());
    resume(state, journal);
    testing::internal::CaptureStderr();
    seedCursorToEOF(state, CursorFile(root_.cursor()), journal);
    testing::internal::GetCapturedStderr();
  }

  ObserveClient client() const {
    return {"http://127.0.0.1:" + std::to_string(server_->port()), "k"};
  }

  test::TempRoot root_;
  std::vector<Request> received_;
  std::vector<Remains> remains_;       // as each request arrived
  std::function<void()> meanwhile_{};  // happens with every request
  int links_ = 0;
  std::unique_ptr<service::HttpServer> server_;
};

// The index of the first request of each event, for each request: an event is its step, with the
// run that is asked for it before and the LLM call and completion behind it.
std::vector<std::size_t> firstOfItsEvent(const std::vector<Request>& requests) {
  std::vector<std::size_t> first;
  bool isRunAskedFor = false;
  for (std::size_t at = 0; at < requests.size(); ++at) {
    const bool isStep = requests[at].path.ends_with("/steps/");
    const bool isStart = requests[at].path.ends_with("/start/");
    const bool begins = isStart || (isStep && !isRunAskedFor);
    first.push_back(begins ? at : first.back());
    isRunAskedFor = isStart;
  }
  return first;
}

TEST_F(Resume, AKillDuringAnyRequestRepeatsTheEventInFlightAndNoOther) {
  const auto first = root_.addTranscript("a", user("old"));
  startAgent();
  test::appendToFile(first, user("one") + assistantWithTools("two", 3) + "no JSON\n\n" +
                                user("three") + lineOf("result", "four", {{"subtype", "success"}}) +
                                user("five") + lineOf("result", "six", {{"subtype", "success"}}));
  root_.addTranscript("b", user("new") + assistantWithTools("newer", 0) + "the begin of a li");
  remains_.clear();
  const auto whole = startAgent();
  ASSERT_GE(whole.size(), 15U);
  const auto begins = firstOfItsEvent(whole);
  const auto remains = remains_;
  for (std::size_t killed = 0; killed < whole.size(); ++killed) {
    remains[killed].putBack(root_.cursor());
    const auto expected =
        std::vector(whole.begin() + static_cast<std::ptrdiff_t>(begins[killed]), whole.end());
    EXPECT_EQ(startAgent(), expected) << "killed during request " << killed;
    EXPECT_THAT(startAgent(), IsEmpty());
  }
}

TEST_F(Resume, ASessionThatOnlyBeganItsRunIsNotAskedForAgain) {
  root_.addTranscript("a", lineOf("system", "init", {{"subtype", "init"}}) + user("one"));
  const auto whole = startAgent();
  ASSERT_EQ(whole.size(), 2U);
  remains_.at(1).putBack(root_.cursor());
  EXPECT_THAT(startAgent(), ElementsAre(whole.at(1)));
}

TEST_F(Resume, AKillInTheFirstPassOverASessionDoesNotMakeTheNextStartPassItOver) {
  root_.addTranscript("a", user("one"));
  const auto whole = startAgent();
  remains_.at(0).putBack(root_.cursor());
  startAsUsual();
  EXPECT_EQ(startAgent(), whole);
}

TEST_F(Resume, SessionsThatWaitedForTheirTurnWhenTheAgentWasKilledAreReported) {
  for (const char* id : {"a", "b", "c"}) root_.addTranscript(id, user(id));
  const auto whole = startAgent();
  ASSERT_EQ(whole.size(), 6U);
  const auto remains = remains_;
  for (std::size_t killed = 0; killed < whole.size(); ++killed) {
    remains[killed].putBack(root_.cursor());
    startAsUsual();
    const auto begun = static_cast<std::ptrdiff_t>(killed / 2 * 2);  // of its session
    EXPECT_EQ(startAgent(), std::vector(whole.begin() + begun, whole.end())) << killed;
  }
}

TEST_F(Resume, ASessionThatWasEmptyWhenThePassBeganIsReportedWhole) {
  const auto first = root_.addTranscript("a", user("first"));
  const auto second = root_.addTranscript("b", "");
  const bool isInOrder = auditFiles().front() == first;
  if (!isInOrder) {
    writeFile(first, "");
    writeFile(second, user("first"));
  }
  meanwhile_ = [&, other = isInOrder ? second : first] {
    if (fs::file_size(other) == 0) test::appendToFile(other, user("later") + user("latest"));
  };
  const auto whole = startAgent();
  ASSERT_EQ(whole.size(), 5U);
  remains_.at(3).putBack(root_.cursor());
  startAsUsual();
  EXPECT_EQ(startAgent(), std::vector(whole.begin() + 2, whole.end()));
}

TEST_F(Resume, APassLeavesAnEmptyJournalAndNamesNoEmptySession) {
  root_.addTranscript("a", user("one"));
  root_.addTranscript("b", user("two"));
  root_.addTranscript("empty", "");
  startAgent();
  EXPECT_EQ(contentOf(journalPath(root_.cursor())), "");
}

TEST_F(Resume, WhatWasWrittenBeforeTheFirstStartStaysUnreportedIfNothingCouldBeSaved) {
  const auto path = root_.addTranscript("a", user("old"));
  const std::string inTheWay = root_.cursor() + ".tmp/file";
  writeFile(inTheWay, "");
  CursorState state;
  Journal journal(root_.cursor());
  const CursorFile file(root_.cursor());
  testing::internal::CaptureStderr();
  seedCursorToEOF(state, file, journal);
  test::appendToFile(path, user("new"));
  pollOnce(state, file, journal, client(), "", false);
  testing::internal::GetCapturedStderr();
  ASSERT_FALSE(received_.empty());
  fs::remove_all(root_.cursor() + ".tmp");
  startAsUsual();
  EXPECT_THAT(startAgent(), IsEmpty());
}

TEST_F(Resume, WithoutTheJournalTheCursorFileAloneHolds) {
  const auto path = root_.addTranscript("a", user("old"));
  startAgent();
  test::appendToFile(path, user("one") + user("two") + user("three"));
  remains_.clear();
  const auto whole = startAgent();
  ASSERT_EQ(whole.size(), 3U);
  remains_.at(2).putBack(root_.cursor());
  fs::remove(journalPath(root_.cursor()));
  EXPECT_EQ(startAgent(), whole);
}

TEST_F(Resume, TheJournalLeavesNoTraceInTheCursorFile) {
  const auto path = root_.addTranscript("a", user("one") + user("two"));
  startAgent();
  const std::string saved = contentOf(root_.cursor());
  remains_.at(2).putBack(root_.cursor());
  startAgent();
  EXPECT_EQ(contentOf(root_.cursor()), saved);
}

TEST_F(Resume, TheOffsetStandsBehindTheLastHandledLine) {
  const auto path = root_.addTranscript("a", user("one") + user("two") + user("three"));
  startAgent();
  remains_.at(3).putBack(root_.cursor());
  CursorState state;
  Journal journal(root_.cursor());
  resume(state, journal);
  EXPECT_EQ(state.at(path).values().at("offset"), user("one").size());
}

TEST_F(Resume, AListOfKeysThatIsNoneIsBegunAnew) {
  Journal journal(root_.cursor());
  journal.addNew({"/t"});
  journal.begin("/t", json::object());
  journal.addEvent(json::object(), "a");
  CursorState state;
  state["/t"] = CursorEntry(json{{"seen_keys", "no list"}});
  Journal next(root_.cursor());
  resume(state, next);
  EXPECT_EQ(state.at("/t").values().dump(), R"({"seen_keys":["a"]})");
}

TEST_F(Resume, AnEventThatComesBeforeItsNewTranscriptKeepsItsKey) {
  Journal journal(root_.cursor());
  journal.begin("/t", json::object());
  journal.addEvent(json::object(), "a");
  journal.addNew({"/t"});
  CursorState state;
  Journal next(root_.cursor());
  resume(state, next);
  EXPECT_EQ(state.at("/t").values().at("seen_keys").dump(), R"(["a"])");
}

TEST_F(Resume, ManyEventsOfTheJournalKeepTheNewestKeys) {
  Journal journal(root_.cursor());
  journal.addNew({"/t"});
  journal.begin("/t", json::object());
  for (int event = 0; event < 10'002; ++event) {
    journal.addEvent(json::object(), std::to_string(event));
  }
  CursorState state;
  Journal next(root_.cursor());
  resume(state, next);
  const json keys = state.at("/t").values().at("seen_keys");
  EXPECT_EQ(keys.size(), 5001U);
  EXPECT_EQ(keys.back(), "10001");
}

}  // namespace
}  // namespace pelmar
