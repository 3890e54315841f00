// What holds for any line and any content.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "audit/audit_parser.h"
#include "audit/event_names.h"
#include "audit/lenient_values.h"
#include "audit/seen_keys.h"
#include "platform/json.h"
#include "service/request_checks.h"
#include "tests/audit/line_test.h"
#include "tests/support/for_each_seed.h"
#include "tests/support/slow_text.h"

namespace pelmar {
namespace {

using test::forEachSeed;
using test::RandomInput;
using ::testing::StartsWith;

constexpr TimePoint kNow{};

TEST(AnyLine, HasEventsThatSerialiseAndParseBack) {
  forEachSeed(3000, [](RandomInput input) {
    const auto line = std::make_shared<const json>(input.line());
    for (const CoworkEvent& event : AuditParser::parse(line, kNow)) {
      EXPECT_TRUE(event.payload.is_object());
      EXPECT_EQ(parseJsonObject(compactJson(event.payload)), event.payload);
      EXPECT_EQ(event.timestamp, textAt(*line, "timestamp"));
      EXPECT_THAT(stepNameForEvent(event), StartsWith("cowork:"));
      EXPECT_NE(eventDedupKey(*line, event).find(':' + event.kind + ':'), std::string::npos);
    }
  });
}

class AnyLines : public test::LineTest {};

TEST_F(AnyLines, MakeBodiesThatTheServiceTakes) {
  accept("/api/v1/observe/runs/R/");
  forEachSeed(500, [&](RandomInput input) { EXPECT_TRUE(process(input.line().dump())); });
  std::string question;
  std::string answer;
  std::int64_t calls = 0;
  std::int64_t position = 0;
  for (const auto& received : service_->requests()) {
    const std::string& path = received.request.path;
    const auto body = parseJson(received.request.body);
    ASSERT_TRUE(body) << received.request.body;
    const auto fault = path == test::kSteps   ? service::checkSteps(*body)
                       : path == test::kCalls ? service::checkLlmCalls(*body)
                                              : service::checkCompletion(*body);
    EXPECT_FALSE(fault) << fault->error << ": " << received.request.body;
    if (path == test::kCalls) {
      const json& call = (*body)["calls"][0];
      EXPECT_EQ(call["prompt_preview"], test::slowlyCut(question, 2000));
      EXPECT_EQ(call["response_preview"], test::slowlyCut(answer, 2000));
      ++calls;
    } else if (path == test::kSteps) {
      const json& output = (*body)["steps"][0]["output"];
      EXPECT_EQ((*body)["steps"][0]["position"], position++);
      if (output["kind"] == "user_message") question = textAt(output, "text");
      if (output["kind"] == "assistant") answer = textAt(output, "text");
    }
  }
  EXPECT_GT(calls, 50);
  EXPECT_GT(position, 400);
}

TEST(AnyContent, IsSummarizedByItsFirst500Characters) {
  forEachSeed(1500, [](RandomInput input) {
    const json content = input.content();
    const std::string text = test::textOfContent(content);
    const std::size_t few = input.below(20);
    EXPECT_EQ(summarizeContent(&content, few), test::slowlyCut(text, few)) << few;

    const json block = {{"type", "tool_result"}, {"content", content}};
    const json line = {{"type", "user"}, {"message", {{"content", json::array({block})}}}};
    const auto events = AuditParser::parse(std::make_shared<const json>(line), kNow);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(textAt(events[0].payload, "content"), test::slowlyCut(text, 500));
  });
}

// What SeenKeys does, one key at a time.
struct SlowKeys {
  std::deque<std::string> list{};

  bool contains(const std::string& key) const {
    return std::find(list.begin(), list.end(), key) != list.end();
  }
  void trim() {
    if (list.size() < 10001) return;
    while (list.size() > 5000) list.pop_front();
  }
};

TEST(AnyKeys, AreRememberedAsAListWouldUpToTheBoundAndAcrossRestarts) {
  forEachSeed(6, [](RandomInput input) {
    json state = json::object();
    SlowKeys slow;
    SeenKeys keys;
    for (int i = 0; i < 60; ++i) {
      keys.attach(state);
      for (std::size_t left = input.below(1000); left > 0; --left) {
        slow.list.push_back(std::to_string(slow.list.size()) + input.text(3));
        keys.add(state, slow.list.back());
      }
      keys.trim(state);
      slow.trim();
      ASSERT_EQ(state["seen_keys"], json(slow.list));
      const std::string any = std::to_string(input.below(12000));
      ASSERT_EQ(keys.contains(any), slow.contains(any));
      ASSERT_TRUE(slow.list.empty() || keys.contains(slow.list.front()));
      if (!input.isOneIn(5)) continue;
      state = json::parse(state.dump());
      keys = SeenKeys();
    }
  });
}

}  // namespace
}  // namespace pelmar
