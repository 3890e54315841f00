#include "watcher/cursor_entry.h"

#include <gmock/gmock.h>

#include <string>

#include "platform/json.h"

namespace pelmar {
namespace {

CursorEntry entryOf(const std::string& text) { return CursorEntry(json::parse(text)); }

// The index of seen keys is made by attach() alone: what has one was not made from the text since.
void mark(CursorEntry& entry) {
  auto& [values, seenKeys] = entry.open();
  seenKeys.attach(values);
  if (!seenKeys.contains("k")) seenKeys.add(values, "k");
}
bool isMarked(CursorEntry& entry) { return entry.open().seenKeys.contains("k"); }

TEST(CursorEntry, TextIsThatOfTheCursorFile) {
  EXPECT_EQ(CursorEntry().text(), "{}");
  EXPECT_EQ(entryOf("{}").text(), "{}");
  EXPECT_EQ(entryOf(R"({"offset": 1, "a/b": ["//", {}, 1.0]})").text(), R"({
  "a\/b": [
    "\/\/",
    {},
    1.0
  ],
  "offset": 1
})");
}

TEST(CursorEntry, ValuesAreWhatItWasMadeOf) {
  for (const char* text :
       {"{}", R"({"offset":-0.0})", R"({"a":"é😀\"\\\u0000/","b":[[],{},null,true]})",
        R"({"n":[1.0,0.1,1e300,-9223372036854775808,18446744073709551615,9007199254740993]})"}) {
    EXPECT_EQ(entryOf(text).values().dump(), json::parse(text).dump()) << text;
  }
}

TEST(CursorEntry, OffsetIsAnExactIntegerOrZero) {
  const struct {
    const char* text;
    std::int64_t offset;
  } rows[] = {
      {R"({})", 0},
      {R"({"offset":0})", 0},
      {R"({"offset":50})", 50},
      {R"({"offset":50.0})", 50},
      {R"({"offset":50.5})", 0},
      {R"({"offset":"50"})", 0},
      {R"({"offset":null})", 0},
      {R"({"offset":[50]})", 0},
      {R"({"offset":-1})", -1},
      {R"({"offset":9223372036854775807})", 9223372036854775807},
      {R"({"offset":9223372036854775808})", 0},
      {R"({"other":{"offset":7}})", 0},
  };
  for (const auto& row : rows) EXPECT_EQ(entryOf(row.text).offset(), row.offset) << row.text;
}

TEST(CursorEntry, ChangesCountOnceItIsRewritten) {
  CursorEntry entry = entryOf(R"({"offset":1})");
  FileState& opened = entry.open();
  opened.values["offset"] = 2;
  opened.seenKeys.attach(opened.values);
  opened.seenKeys.add(opened.values, "k");
  EXPECT_EQ(entry.values().dump(), R"({"offset":1})");
  EXPECT_EQ(entry.offset(), 1);
  entry.rewrite();
  EXPECT_EQ(entry.values().dump(), R"({"offset":2,"seen_keys":["k"]})");
  EXPECT_EQ(entry.offset(), 2);
  EXPECT_EQ(entry.open().values.dump(), R"({"offset":2,"seen_keys":["k"]})");
}

TEST(CursorEntry, WhatIsNotOpenStaysAsItIsWhenItIsRewritten) {
  CursorEntry entry = entryOf(R"({"offset":1})");
  entry.rewrite();
  EXPECT_EQ(entry.values().dump(), R"({"offset":1})");
}

TEST(CursorEntry, IsGivenBackAtOnceWhenItDidNotGrowInThePassBefore) {
  CursorEntry entry;
  mark(entry);
  EXPECT_TRUE(isMarked(entry));
  entry.rewrite();
  EXPECT_FALSE(isMarked(entry));
}

TEST(CursorEntry, StaysOpenWhileItGrowsInPassAfterPass) {
  CursorEntry entry;
  mark(entry);
  entry.rewrite();
  entry.endPass();
  mark(entry);
  for (int pass = 0; pass < 3; ++pass) {
    entry.rewrite();
    entry.endPass();
    EXPECT_TRUE(isMarked(entry));
  }
  entry.endPass();
  EXPECT_FALSE(isMarked(entry));
  mark(entry);
  entry.rewrite();
  EXPECT_FALSE(isMarked(entry));
}

}  // namespace
}  // namespace pelmar
