// What holds for any line and any content.

#include <gmock/gmock.h>

#include <algorithm>
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
  std::int64_t position = 0;
  for (const auto& received : service_->requests()) {
    const std::string& path = received.request.path;
    const auto body = parseJson(received.request.body);
    ASSERT_TRUE(body) << received.request.body;
    const auto fault = path == test::kSteps                    ? service::checkSteps(*body)
                       : path.find("/llm-calls/") != path.npos ? service::checkLlmCalls(*body)
                                                               : service::checkCompletion(*body);
    EXPECT_FALSE(fault) << fault->error << ": " << received.request.body;
    if (path != test::kSteps) continue;
    EXPECT_EQ((*body)["steps"][0]["position"], position++);
  }
  EXPECT_GT(position, 400);
}

std::string wholeTextOf(const json& content) {
  if (content.is_null()) return "";
  if (content.is_string()) return content;
  const bool isBlocks =
      content.is_array() &&
      std::all_of(content.begin(), content.end(), [](auto& block) { return block.is_object(); });
  if (!isBlocks) return content.dump();
  std::string joined;
  for (const json& block : content) {
    for (const char* key : {"text", "content"}) {
      if (!block.contains(key) || !block[key].is_string()) continue;
      joined += block[key].get<std::string>() + '\n';
      break;
    }
  }
  return joined.substr(0, joined.size() - std::min<std::size_t>(joined.size(), 1));
}

TEST(AnyContent, IsSummarizedByItsFirst500Characters) {
  forEachSeed(1500, [](RandomInput input) {
    const json content = input.content();
    EXPECT_EQ(summarizeContent(&content, 500), test::slowlyCut(wholeTextOf(content), 500));
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
