#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "platform/json.h"
#include "tests/support/temp_root.h"
#include "watcher/poll_pass.h"

namespace pelmar {
namespace {

using test::contentOf;
using test::TempRoot;
using test::writeFile;

// What a fresh entry holds.
std::string entryAt(int offset) {
  return R"({"offset":)" + std::to_string(offset) +
         R"(,"run_id":null,"step_position":0,"workflow_id":null})";
}

struct Seeding {
  CursorState state;
  std::string log;
};

Seeding seed(const TempRoot& root) {
  const CursorFile file(root.cursor());
  Seeding seeding{.state = file.load().state, .log = {}};
  testing::internal::CaptureStderr();
  Journal journal(root.cursor());
  seedCursorToEOF(seeding.state, file, journal);
  seeding.log = testing::internal::GetCapturedStderr();
  return seeding;
}

TEST(SeedCursor, UnknownTranscriptsAreSeededAtTheirEndAndSaved) {
  const TempRoot root;
  const std::string full = root.addTranscript("full", std::string(100, 'x'));
  const std::string empty = root.addTranscript("empty", "");
  const Seeding seeding = seed(root);
  ASSERT_EQ(seeding.state.size(), 2U);
  EXPECT_EQ(seeding.state.at(full).values().dump(), entryAt(100));
  EXPECT_EQ(seeding.state.at(empty).values().dump(), entryAt(0));

  const json saved = json::parse(contentOf(root.cursor()));
  ASSERT_EQ(saved.size(), 2U);
  EXPECT_EQ(saved.at(full).dump(), entryAt(100));
  EXPECT_EQ(saved.at(empty).dump(), entryAt(0));
}

TEST(SeedCursor, LogsHowManyWereSeeded) {
  const TempRoot root;
  root.addTranscript("full", std::string(100, 'x'));
  root.addTranscript("empty", "");
  EXPECT_THAT(seed(root).log,
              testing::EndsWith(" info cowork-watcher seeded cursor to EOF for 2 audit files"
                                " (tail-only)\n"));
}

TEST(SeedCursor, OffsetCountsBytesWhateverTheyAre) {
  const TempRoot root;
  const std::string path = root.addTranscript("a", "\xFF\xE2\x82\n😀 unfinished");
  EXPECT_EQ(seed(root).state.at(path).values().dump(), entryAt(19));
}

TEST(SeedCursor, KnownEntriesAreLeftUntouched) {
  const TempRoot root;
  const std::string known = root.addTranscript("known", std::string(80, 'x'));
  const std::string strange = root.addTranscript("strange", std::string(80, 'x'));
  const std::string fresh = root.addTranscript("fresh", std::string(7, 'x'));
  writeFile(root.cursor(), json({{known, {{"offset", 50}, {"run_id", "r"}, {"further", 1.0}}},
                                 {strange, json::object()},
                                 {"/gone.jsonl", {{"offset", 3}}}})
                               .dump());
  const Seeding seeding = seed(root);
  EXPECT_EQ(seeding.state.at(known).values().dump(), R"({"further":1.0,"offset":50,"run_id":"r"})");
  EXPECT_EQ(seeding.state.at(strange).values().dump(), "{}");
  EXPECT_EQ(seeding.state.at("/gone.jsonl").values().dump(), R"({"offset":3})");
  EXPECT_EQ(seeding.state.at(fresh).values().dump(), entryAt(7));
  EXPECT_THAT(seeding.log, testing::HasSubstr("seeded cursor to EOF for 1 audit files"));
  EXPECT_EQ(json::parse(contentOf(root.cursor())),
            json({{known, {{"offset", 50}, {"run_id", "r"}, {"further", 1.0}}},
                  {strange, json::object()},
                  {"/gone.jsonl", {{"offset", 3}}},
                  {fresh, json::parse(entryAt(7))}}));
}

TEST(SeedCursor, WithoutTranscriptsNothingIsSavedOrLogged) {
  const TempRoot root;
  const Seeding seeding = seed(root);
  EXPECT_EQ(seeding.state.size(), 0U);
  EXPECT_EQ(seeding.log, "");
  EXPECT_TRUE(std::filesystem::is_empty(root.home()));
}

TEST(SeedCursor, WithOnlyKnownTranscriptsNothingIsSavedOrLogged) {
  const TempRoot root;
  const std::string known = root.addTranscript("known", std::string(80, 'x'));
  const std::string stored = json({{known, {{"offset", 50}}}}).dump();
  writeFile(root.cursor(), stored);
  const Seeding seeding = seed(root);
  EXPECT_EQ(seeding.log, "");
  EXPECT_EQ(contentOf(root.cursor()), stored);
}

TEST(SeedCursor, UnusableCursorFileSeedsEveryTranscriptAgain) {
  const TempRoot root;
  const std::string path = root.addTranscript("a", std::string(80, 'x'));
  writeFile(root.cursor(), json({{path, {{"offset", 50}}}, {"/b.jsonl", "text"}}).dump());
  const Seeding seeding = seed(root);
  EXPECT_EQ(seeding.state.size(), 1U);
  EXPECT_EQ(seeding.state.at(path).values().dump(), entryAt(80));
}

TEST(SeedCursor, FailureToSaveIsLoggedAndTheStateKept) {
  const TempRoot root;
  const std::string path = root.addTranscript("a", std::string(80, 'x'));
  writeFile(root.home() + "/.pelmar", "in the way of the folder");
  const Seeding seeding = seed(root);
  EXPECT_EQ(seeding.state.at(path).values().dump(), entryAt(80));
  EXPECT_THAT(seeding.log,
              testing::EndsWith(" error cowork-watcher cursor save failed: Not a directory\n"));
}

}  // namespace
}  // namespace pelmar
