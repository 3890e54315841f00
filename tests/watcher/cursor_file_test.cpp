#include "watcher/cursor_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/json.h"
#include "tests/support/temp_root.h"

namespace pelmar {
namespace {

using test::contentOf;
using test::TempRoot;
using test::writeFile;

CursorState stateOf(const std::string& jsonText) {
  CursorState state;
  const json parsed = json::parse(jsonText);
  for (const auto& [path, values] : parsed.items()) {
    state.emplace(path, CursorEntry(values));
  }
  return state;
}

// As compact JSON text.
std::string textOf(const CursorState& state) {
  json all = json::object();
  for (const auto& [path, file] : state) all[path] = file.values();
  return all.dump();
}

std::string loaded(const TempRoot& root, const std::string& content) {
  writeFile(root.cursor(), content);
  return textOf(CursorFile(root.cursor()).load().state);
}

// The permission bits of what stands at `path`.
mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

std::string reasonOf(int error) { return std::generic_category().message(error); }

TEST(CursorFileLoad, MissingFileIsEmpty) {
  const TempRoot root;
  EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state), "{}");
}

TEST(CursorFileLoad, ReadingCreatesNothing) {
  const TempRoot root;
  CursorFile(root.cursor()).load();
  EXPECT_TRUE(std::filesystem::is_empty(root.home()));
}

TEST(CursorFileLoad, FolderInPlaceOfTheFileIsEmpty) {
  const TempRoot root;
  std::filesystem::create_directories(root.cursor());
  EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state), "{}");
}

TEST(CursorFileLoad, FifoInPlaceOfTheFileIsEmptyAndDoesNotBlock) {
  const TempRoot root;
  std::filesystem::create_directories(root.home() + "/.pelmar");
  ASSERT_EQ(::mkfifo(root.cursor().c_str(), 0600), 0);
  EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state), "{}");
}

TEST(CursorFileLoad, EntriesAreReadAsTheyStand) {
  const TempRoot root;
  EXPECT_EQ(loaded(root, R"({"/b": {"offset": 80, "run_id": "r", "further": [1.0, {"x": null}]},
                             "/a": {}})"),
            R"({"/a":{},"/b":{"further":[1.0,{"x":null}],"offset":80,"run_id":"r"}})");
}

TEST(CursorFileLoad, EmptyObjectIsEmpty) {
  const TempRoot root;
  EXPECT_EQ(loaded(root, "{}"), "{}");
}

TEST(CursorFileLoad, AnythingButAnObjectOfObjectsIsEmptyAsAWhole) {
  const TempRoot root;
  const std::string contents[] = {"",
                                  " \n",
                                  "not json",
                                  R"({"/a": {"offset": 1})",
                                  R"({"/a": {"offset": 1}} x)",
                                  R"({"/a": {"offset": 1},})",
                                  "{\"/a\": {\"run_id\": \"\xFF\"}}",
                                  std::string("{\"/a\": {}}\0", 11),
                                  "[]",
                                  R"([{"offset": 1}])",
                                  "7",
                                  "null",
                                  "true",
                                  R"("text")",
                                  R"({"/a": {"offset": 1}, "/b": "text"})",
                                  R"({"/a": "text", "/b": {"offset": 1}})",
                                  R"({"/a": {"offset": 1}, "/b": null})",
                                  R"({"/a": {"offset": 1}, "/b": 7})",
                                  R"({"/a": {"offset": 1}, "/b": [{}]})",
                                  R"({"/a": {"offset": 1}, "/b": false})"};
  for (const std::string& content : contents) EXPECT_EQ(loaded(root, content), "{}") << content;
}

TEST(CursorFileLoad, BothFormsOfASlashAreRead) {
  const TempRoot root;
  EXPECT_EQ(loaded(root, R"({"\/home\/a": {"run_id": "x\/y"}, "/home/b": {"run_id": "x/y"}})"),
            R"({"/home/a":{"run_id":"x/y"},"/home/b":{"run_id":"x/y"}})");
}

TEST(CursorFileLoad, OfEntriesOfOnePathTheLastCounts) {
  const TempRoot root;
  EXPECT_EQ(loaded(root, R"({"/a": {"offset": 1}, "/b": {}, "/a": {"run_id": "r"}})"),
            R"({"/a":{"run_id":"r"},"/b":{}})");
  EXPECT_EQ(loaded(root, R"({"/a": 7, "/a": {"offset": 1}})"), R"({"/a":{"offset":1}})");
  EXPECT_EQ(loaded(root, R"({"/a": {"offset": 1}, "/a": 7})"), "{}");
}

// Quadratic work would not end within the test's patience.
TEST(CursorFileLoad, AMillionNestedObjectsAreReadAtOnce) {
  std::string text = R"({"/p":{"x":[{})";
  for (int i = 1; i < 1'000'000; ++i) text += ",{}";
  const TempRoot root;
  writeFile(root.cursor(), text + "]}}");
  const auto state = CursorFile(root.cursor()).load().state;
  ASSERT_TRUE(state.contains("/p"));
  EXPECT_EQ(state.at("/p").values().at("x").size(), 1'000'000U);
}

TEST(CursorFileLoad, SaysWhyTheStateIsEmpty) {
  const TempRoot root;
  const CursorFile file(root.cursor());
  EXPECT_EQ(file.load().problem, "");
  writeFile(root.cursor(), "{}");
  EXPECT_EQ(file.load().problem, "");
  writeFile(root.cursor(), R"({"/a": 7)");
  EXPECT_EQ(file.load().problem, root.cursor() + " is no JSON object");
  writeFile(root.cursor(), "[]");
  EXPECT_EQ(file.load().problem, root.cursor() + " is no JSON object");
  writeFile(root.cursor(), R"({"/a": 7, "/b": {}})");
  EXPECT_EQ(file.load().problem, root.cursor() + " has an entry that is no object");
}

TEST(CursorFileSave, EveryByteIsSettled) {
  const TempRoot root;
  const CursorFile file(root.cursor());
  EXPECT_EQ(file.save({}), std::nullopt);
  EXPECT_EQ(contentOf(root.cursor()), "{\n}\n");
  writeFile(root.cursor(), R"({"/z/\u00e9 \"\n":{"b":[],"a":{},"b":[1.0,-0.0,[{"/":"\/"}]]},
      "\/a" : {"offset":1e2, "é":"\ud83d\ude00\u0000\u001f\\", "n":18446744073709551616,
      "empty":""}, "/b":{}, "":{"offset":-9223372036854775808,"d":0.1,"t":true,"x":null}})");
  EXPECT_EQ(file.save(file.load().state), std::nullopt);
  EXPECT_EQ(contentOf(root.cursor()), R"({
"": {
  "d": 0.1,
  "offset": -9223372036854775808,
  "t": true,
  "x": null
},
"\/a": {
  "empty": "",
  "n": 1.8446744073709552e+19,
  "offset": 100.0,
  "é": "😀\u0000\u001f\\"
},
"\/b": {},
"\/z\/é \"\n": {
  "a": {},
  "b": [
    1.0,
    -0.0,
    [
      {
        "\/": "\/"
      }
    ]
  ]
}
}
)");
}

TEST(CursorFileSave, WritesIndentedSortedJsonWithEscapedSlashes) {
  const TempRoot root;
  const auto failure = CursorFile(root.cursor()).save(stateOf(R"({"/b": {"offset": 1}, "/a":
      {"step_position": 2, "run_id": null, "further": {"z": "x/y", "a": [1.5, true]}}})"));
  EXPECT_EQ(failure, std::nullopt);
  const std::string content = contentOf(root.cursor());
  EXPECT_EQ(json::parse(content).dump(),
            R"({"/a":{"further":{"a":[1.5,true],"z":"x/y"},"run_id":null,"step_position":2},)"
            R"("/b":{"offset":1}})");
  EXPECT_THAT(content, testing::HasSubstr(R"("\/a": {)"));
  EXPECT_THAT(content, testing::HasSubstr(R"("\/b": {)"));
  EXPECT_THAT(content, testing::HasSubstr(R"("z": "x\/y")"));
  EXPECT_THAT(content, testing::Not(testing::ContainsRegex("[^\\]/")));
  EXPECT_THAT(content, testing::ContainsRegex("\n +\"run_id\": null"));

  std::size_t last = 0;
  for (const char* key : {R"("\/a")", R"("further")", R"("a")", R"("z")", R"("run_id")",
                          R"("step_pos)", R"("\/b")"}) {
    const auto position = content.find(key);
    ASSERT_NE(position, content.npos) << key;
    EXPECT_GT(position, last) << key;
    last = position;
  }
}

TEST(CursorFileSave, WhatIsSavedIsLoadedAgain) {
  const TempRoot root;
  const char* states[] = {
      "{}",
      R"({"/a": {}})",
      R"({"/a \"b\" \\ é 😀\n/c.jsonl": {"seen_keys": ["U:assistant:", "a/b"],
                                         "offset": 9007199254740993}})",
      R"({"/a": {"_last_user_message": "\u0000\u001f/", "further": {"deep": [[{"x": []}]]},
                 "number": 0.1, "run_completed": true},
          "/b": {"daily_session_date": null, "offset": 50.0}})",
  };
  for (const char* state : states) {
    EXPECT_EQ(CursorFile(root.cursor()).save(stateOf(state)), std::nullopt);
    EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state), json::parse(state).dump());
  }
}

TEST(CursorFileSave, EmptyStateIsAnEmptyObject) {
  const TempRoot root;
  EXPECT_EQ(CursorFile(root.cursor()).save({}), std::nullopt);
  EXPECT_EQ(json::parse(contentOf(root.cursor())).dump(), "{}");
}

TEST(CursorFileSave, PathThatIsNotUtf8LeavesTheFileReadable) {
  const TempRoot root;
  CursorState state = stateOf(R"({"/a": {"offset": 1}})");
  state.emplace("/\xFF", CursorEntry(json{{"offset", 2}}));
  EXPECT_EQ(CursorFile(root.cursor()).save(state), std::nullopt);
  EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state),
            json::parse(R"({"/a": {"offset": 1}, "/\uFFFD": {"offset": 2}})").dump());
}

TEST(CursorFileSave, CreatesMissingFoldersAndTheFileForTheirOwnerOnly) {
  const TempRoot root;
  const mode_t before = ::umask(0);
  const auto failure = CursorFile(root.home() + "/x/y/cursor.json").save({});
  ::umask(before);
  EXPECT_EQ(failure, std::nullopt);
  EXPECT_EQ(modeOf(root.home() + "/x"), 0700U);
  EXPECT_EQ(modeOf(root.home() + "/x/y"), 0700U);
  EXPECT_EQ(modeOf(root.home() + "/x/y/cursor.json"), 0600U);
}

TEST(CursorFileSave, ReplacedFileIsForItsOwnerOnlyAndItsFolderIsLeftAsItIs) {
  const TempRoot root;
  writeFile(root.cursor(), "{}");
  ASSERT_EQ(::chmod(root.cursor().c_str(), 0666), 0);
  ASSERT_EQ(::chmod((root.home() + "/.pelmar").c_str(), 0755), 0);
  EXPECT_EQ(CursorFile(root.cursor()).save({}), std::nullopt);
  EXPECT_EQ(modeOf(root.cursor()), 0600U);
  EXPECT_EQ(modeOf(root.home() + "/.pelmar"), 0755U);
}

TEST(CursorFileSave, LeavesNothingBesideTheFile) {
  const TempRoot root;
  writeFile(root.cursor() + ".tmp", "left over from a crash, longer than the new content");
  const CursorFile file(root.cursor());
  EXPECT_EQ(file.save({}), std::nullopt);
  EXPECT_EQ(file.save(stateOf(R"({"/a": {}})")), std::nullopt);
  EXPECT_THAT(namesIn(root.home() + "/.pelmar"), testing::ElementsAre("cowork-cursor.json"));
  EXPECT_EQ(textOf(file.load().state), R"({"/a":{}})");
}

TEST(CursorFileSave, ReplacesTheFileInsteadOfWritingIntoIt) {
  const TempRoot root;
  writeFile(root.cursor(), R"({"/old": {}})");
  std::filesystem::create_hard_link(root.cursor(), root.path() + "/other-name");
  EXPECT_EQ(CursorFile(root.cursor()).save(stateOf(R"({"/new": {}})")), std::nullopt);
  EXPECT_EQ(contentOf(root.path() + "/other-name"), R"({"/old": {}})");
  EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state), R"({"/new":{}})");
}

TEST(CursorFileSave, LinkInPlaceOfTheFileIsReplacedAndNotFollowed) {
  const TempRoot root;
  writeFile(root.path() + "/elsewhere", "untouched");
  std::filesystem::create_directories(root.home() + "/.pelmar");
  std::filesystem::create_symlink(root.path() + "/elsewhere", root.cursor());
  EXPECT_EQ(CursorFile(root.cursor()).save({}), std::nullopt);
  EXPECT_EQ(contentOf(root.path() + "/elsewhere"), "untouched");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(root.cursor())));
}

TEST(CursorFileSave, LinkPlantedAtTheTemporaryPathIsNotFollowed) {
  const TempRoot root;
  writeFile(root.path() + "/elsewhere", "untouched");
  std::filesystem::create_directories(root.home() + "/.pelmar");
  std::filesystem::create_symlink(root.path() + "/elsewhere", root.cursor() + ".tmp");
  EXPECT_EQ(CursorFile(root.cursor()).save({}), std::nullopt);
  EXPECT_EQ(contentOf(root.path() + "/elsewhere"), "untouched");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(root.cursor())));
}

TEST(CursorFileSave, FifoPlantedAtTheTemporaryPathDoesNotBlock) {
  const TempRoot root;
  std::filesystem::create_directories(root.home() + "/.pelmar");
  ASSERT_EQ(::mkfifo((root.cursor() + ".tmp").c_str(), 0600), 0);
  EXPECT_EQ(CursorFile(root.cursor()).save({}), std::nullopt);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(root.cursor())));
}

TEST(CursorFileSave, FolderInPlaceOfTheFileIsRemovedWithItsContents) {
  const TempRoot root;
  writeFile(root.cursor() + "/deeper/file", "x");
  EXPECT_EQ(CursorFile(root.cursor()).save(stateOf(R"({"/a": {}})")), std::nullopt);
  EXPECT_EQ(textOf(CursorFile(root.cursor()).load().state), R"({"/a":{}})");
  EXPECT_THAT(namesIn(root.home() + "/.pelmar"), testing::ElementsAre("cowork-cursor.json"));
}

TEST(CursorFileSave, FailureIsReportedAndTheOldFileStands) {
  const TempRoot root;
  writeFile(root.cursor(), R"({"/old": {}})");
  writeFile(root.cursor() + ".tmp/file", "a folder that no file can take the place of");
  EXPECT_EQ(CursorFile(root.cursor()).save(stateOf(R"({"/new": {}})")), reasonOf(EEXIST));
  EXPECT_EQ(contentOf(root.cursor()), R"({"/old": {}})");
}

TEST(CursorFileSave, FolderInPlaceOfTheFileStandsWhenNothingCanBeWritten) {
  const TempRoot root;
  writeFile(root.cursor() + "/deeper/file", "x");
  writeFile(root.cursor() + ".tmp/file", "a folder that no file can take the place of");
  EXPECT_EQ(CursorFile(root.cursor()).save({}), reasonOf(EEXIST));
  EXPECT_EQ(contentOf(root.cursor() + "/deeper/file"), "x");
}

TEST(CursorFileSave, FileInPlaceOfTheFolderIsReportedAndStands) {
  const TempRoot root;
  writeFile(root.home() + "/.pelmar", "x");
  EXPECT_EQ(CursorFile(root.cursor()).save({}), reasonOf(ENOTDIR));
  EXPECT_EQ(contentOf(root.home() + "/.pelmar"), "x");
}

TEST(CursorFileSave, SucceedsAgainOnceTheObstacleIsGone) {
  const TempRoot root;
  writeFile(root.home() + "/.pelmar", "x");
  const CursorFile file(root.cursor());
  ASSERT_NE(file.save({}), std::nullopt);
  std::filesystem::remove(root.home() + "/.pelmar");
  EXPECT_EQ(file.save(stateOf(R"({"/a": {}})")), std::nullopt);
  EXPECT_EQ(textOf(file.load().state), R"({"/a":{}})");
}

}  // namespace
}  // namespace pelmar
