#include "audit/seen_keys.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "audit/line_processing.h"

namespace pelmar {
namespace {

using nlohmann::json;

// As long as real keys are, so that no string is small enough to live inside its object.
std::string longKey(int i) {
  return "0b6a1de0-7a34-4c58-9d5e-" + std::to_string(i) + ":assistant:";
}

std::string shortKey(int i) { return std::to_string(i); }

template <typename Key>
json listOf(int from, int to, Key key) {
  json list = json::array();
  for (int i = from; i < to; ++i) list.push_back(key(i));
  return list;
}

template <typename Key>
void expectSeen(const SeenKeys& keys, int from, int to, Key key, bool isSeen) {
  for (int i = from; i < to; ++i) {
    ASSERT_EQ(keys.contains(key(i)), isSeen) << "key " << i;
  }
}

TEST(SeenKeys, StoredKeysAreSeen) {
  json state = {{"seen_keys", {"a", "b"}}, {"offset", 7}};
  SeenKeys keys;
  keys.attach(state);
  EXPECT_TRUE(keys.contains("a"));
  EXPECT_TRUE(keys.contains("b"));
  EXPECT_FALSE(keys.contains("c"));
  EXPECT_FALSE(keys.contains(""));
  EXPECT_EQ(state, json({{"seen_keys", {"a", "b"}}, {"offset", 7}}));
}

TEST(SeenKeys, AddedKeysAreSeenAndStoredBehindTheOthers) {
  json state = {{"seen_keys", {"b"}}};
  SeenKeys keys;
  keys.attach(state);
  keys.add(state, "c");
  keys.add(state, "a");
  EXPECT_TRUE(keys.contains("a"));
  EXPECT_TRUE(keys.contains("b"));
  EXPECT_TRUE(keys.contains("c"));
  EXPECT_EQ(state, json({{"seen_keys", {"b", "c", "a"}}}));
}

TEST(SeenKeys, WhatIsNoArrayOfStringsCountsAsEmpty) {
  for (const char* stored :
       {R"({})", R"({"seen_keys": null})", R"({"seen_keys": "a"})", R"({"seen_keys": {"a": "b"}})",
        R"({"seen_keys": 1})", R"({"seen_keys": ["a", 1]})", R"({"seen_keys": ["a", null]})",
        R"({"seen_keys": [["a"]]})", R"({"seen_keys": []})"}) {
    json state = json::parse(stored);
    SeenKeys keys;
    keys.attach(state);
    EXPECT_FALSE(keys.contains("a")) << stored;
    EXPECT_EQ(state.dump(), R"({"seen_keys":[]})") << stored;
    keys.add(state, "x");
    EXPECT_EQ(state.dump(), R"({"seen_keys":["x"]})") << stored;
  }
}

TEST(SeenKeys, EmptyStringIsAKeyLikeAnother) {
  json state = {{"seen_keys", {""}}};
  SeenKeys keys;
  keys.attach(state);
  EXPECT_TRUE(keys.contains(""));
  EXPECT_FALSE(keys.contains("a"));
}

TEST(SeenKeys, TenThousandKeysAreKept) {
  json state = {{"seen_keys", listOf(0, 10000, longKey)}};
  SeenKeys keys;
  keys.attach(state);
  keys.trim(state);
  EXPECT_EQ(state["seen_keys"], listOf(0, 10000, longKey));
  expectSeen(keys, 0, 10000, longKey, true);
}

TEST(SeenKeys, TenThousandAndOneKeysAreCutToTheNewestFiveThousandInOrder) {
  json state = {{"seen_keys", listOf(0, 10000, longKey)}};
  SeenKeys keys;
  keys.attach(state);
  keys.add(state, longKey(10000));
  keys.trim(state);
  EXPECT_EQ(state["seen_keys"], listOf(5001, 10001, longKey));
  expectSeen(keys, 0, 5001, longKey, false);
  expectSeen(keys, 5001, 10001, longKey, true);
}

TEST(SeenKeys, StoredListAboveTheBoundIsCutToo) {
  json state = {{"seen_keys", listOf(0, 12000, shortKey)}};
  SeenKeys keys;
  keys.attach(state);
  keys.trim(state);
  EXPECT_EQ(state["seen_keys"], listOf(7000, 12000, shortKey));
  expectSeen(keys, 0, 7000, shortKey, false);
  expectSeen(keys, 7000, 12000, shortKey, true);
}

TEST(SeenKeys, AddingAloneNeverCuts) {
  json state = {{"seen_keys", listOf(0, 10001, shortKey)}};
  SeenKeys keys;
  keys.attach(state);
  keys.add(state, shortKey(10001));
  EXPECT_EQ(state["seen_keys"], listOf(0, 10002, shortKey));
}

TEST(SeenKeys, IndexStaysRightOverManyAdditionsAndCuts) {
  json state = json::object();
  SeenKeys keys;
  keys.attach(state);
  for (int i = 0; i < 25001; ++i) {
    ASSERT_FALSE(keys.contains(shortKey(i))) << "key " << i;
    keys.add(state, shortKey(i));
    keys.trim(state);
  }
  // 10001 leave 5000, and so does every 5001st key after that.
  EXPECT_EQ(state["seen_keys"], listOf(15003, 25001, shortKey));
  expectSeen(keys, 0, 15003, shortKey, false);
  expectSeen(keys, 15003, 25001, shortKey, true);
}

TEST(SeenKeys, DuplicatesInAStoredListStayAndCountTowardsTheBound) {
  json list = listOf(0, 9999, longKey);
  list.push_back(longKey(7));
  list.push_back(longKey(7));
  json state = {{"seen_keys", list}};
  SeenKeys keys;
  keys.attach(state);
  EXPECT_EQ(state["seen_keys"], list);
  keys.trim(state);
  json expected = listOf(5001, 9999, longKey);
  expected.push_back(longKey(7));
  expected.push_back(longKey(7));
  EXPECT_EQ(state["seen_keys"], expected);
  EXPECT_TRUE(keys.contains(longKey(7)));
  EXPECT_FALSE(keys.contains(longKey(5000)));
}

TEST(SeenKeys, DuplicateWhoseOldEntryIsCutIsStillSeen) {
  json list = listOf(0, 10000, shortKey);
  list.push_back(shortKey(0));
  json state = {{"seen_keys", list}};
  SeenKeys keys;
  keys.attach(state);
  keys.trim(state);
  EXPECT_EQ(state["seen_keys"].size(), 5000U);
  EXPECT_TRUE(keys.contains(shortKey(0)));
  EXPECT_FALSE(keys.contains(shortKey(1)));
}

template <typename Key>
void expectIndexFollowsMoves(Key key) {
  FileState state{.values = {{"seen_keys", listOf(0, 10, key)}}};
  state.seenKeys.attach(state.values);
  std::vector<FileState> others;
  for (int i = 10; i < 200; ++i) {
    FileState moved = std::move(state);
    moved.seenKeys.attach(moved.values);
    moved.seenKeys.add(moved.values, key(i));
    others.push_back(std::move(moved));  // growing moves it again
    state = std::move(others.back());
    expectSeen(state.seenKeys, 0, i + 1, key, true);
  }
  EXPECT_EQ(state.values["seen_keys"], listOf(0, 200, key));
  expectSeen(state.seenKeys, 200, 210, key, false);
}

TEST(SeenKeys, IndexStaysRightWhenTheFileStateMoves) {
  expectIndexFollowsMoves(shortKey);
  expectIndexFollowsMoves(longKey);
}

TEST(SeenKeys, AttachingAgainChangesNothing) {
  json state = {{"seen_keys", {"a"}}};
  SeenKeys keys;
  keys.attach(state);
  keys.add(state, "b");
  keys.attach(state);
  EXPECT_TRUE(keys.contains("a"));
  EXPECT_TRUE(keys.contains("b"));
  EXPECT_EQ(state.dump(), R"({"seen_keys":["a","b"]})");
}

}  // namespace
}  // namespace pelmar
