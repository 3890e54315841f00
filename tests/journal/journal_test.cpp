#include "journal/journal.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/json.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/temp_root.h"

namespace pelmar {
namespace {

using test::contentOf;
using test::writeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace fs = std::filesystem;

// An entry in one line, so that expectations read as what is remembered.
std::string wordsOf(const JournalEntry& entry) {
  if (entry.isNew) return entry.transcript + " is new";
  std::string words = entry.transcript;
  words.append(" ").append(entry.values.dump());
  if (entry.offset) words.append(" to ").append(std::to_string(*entry.offset));
  if (entry.seenKey) words.append(" seen ").append(*entry.seenKey);
  return words;
}

std::string firstLineOf(const std::string& text) { return text.substr(0, text.find('\n') + 1); }

class JournalTest : public testing::Test {
 protected:
  JournalTest() { writeFile(root_.cursor(), "{}"); }

  std::string path() const { return journalPath(root_.cursor()); }

  // What an agent that starts now would be told.
  std::vector<std::string> loaded() const {
    std::vector<std::string> words;
    for (const JournalEntry& entry : Journal(root_.cursor()).load()) {
      words.push_back(wordsOf(entry));
    }
    return words;
  }

  // Adds the events a, b and c of the known transcript /t.
  void addThreeEvents() {
    json values{{"step_position", 1}};
    journal_.begin("/t", values);
    for (const char* key : {"a", "b", "c"}) {
      values["step_position"] = values["step_position"].get<int>() + 1;
      journal_.addEvent(values, key);
    }
  }

  test::TempRoot root_;
  Journal journal_{root_.cursor()};
};

TEST_F(JournalTest, StandsBesideTheCursorFile) {
  EXPECT_EQ(journalPath("/h/.pelmar/cowork-cursor.json"), "/h/.pelmar/cowork-cursor-journal.jsonl");
}

TEST_F(JournalTest, WithoutAFileThereIsNothing) {
  EXPECT_THAT(loaded(), IsEmpty());
  EXPECT_FALSE(fs::exists(path()));
}

TEST_F(JournalTest, AnEventIsRememberedWithWhatChanged) {
  json values{{"offset", 7}, {"run_id", nullptr}, {"step_position", 0}};
  journal_.begin("/t", values);
  values["run_id"] = "R";
  values["step_position"] = 1;
  journal_.addEvent(values, "a");
  values["step_position"] = 2;
  journal_.addEvent(values, "b");
  EXPECT_THAT(loaded(), ElementsAre(R"(/t {"run_id":"R","step_position":1} seen a)",
                                    R"(/t {"step_position":2} seen b)"));
}

TEST_F(JournalTest, AnEventIsThereAtOnce) {
  addThreeEvents();
  const auto before = fs::file_size(path());
  journal_.addEvent({{"step_position", 4}}, "d");
  EXPECT_GT(fs::file_size(path()), before);
  EXPECT_THAT(loaded(), SizeIs(4));
}

TEST_F(JournalTest, ListsAndObjectsAreNotLookedAt) {
  json values{{"seen_keys", json::array({"x"})}, {"other", {{"k", 1}}}};
  journal_.begin("/t", values);
  values["seen_keys"].push_back("a");
  values["other"]["k"] = 2;
  journal_.addEvent(values, "a");
  EXPECT_THAT(loaded(), ElementsAre("/t {} seen a"));
}

TEST_F(JournalTest, ANewTranscriptIsRememberedBeforeItsFirstEvent) {
  journal_.addNew({"/a", "/b"});
  EXPECT_THAT(loaded(), ElementsAre("/a is new", "/b is new"));
}

TEST_F(JournalTest, ANewTranscriptIsNamedOnceUntilTheCursorIsSaved) {
  journal_.addNew({"/a"});
  journal_.addNew({"/a", "/b"});
  const auto size = fs::file_size(path());
  journal_.addNew({"/a", "/b"});
  journal_.addNew({});
  EXPECT_EQ(fs::file_size(path()), size);
  EXPECT_THAT(loaded(), ElementsAre("/a is new", "/b is new"));
  journal_.clear();
  journal_.addNew({"/b"});
  EXPECT_THAT(loaded(), ElementsAre("/b is new"));
}

TEST_F(JournalTest, WhatIsStillNewIsNotWrittenAgainWhenTheCursorIsSaved) {
  journal_.addNew({"/a", "/b", "/c"});
  const std::string head = firstLineOf(contentOf(path()));
  for (const char* saved : {"{ }", "{  }", "{   }"}) {
    addThreeEvents();
    ASSERT_THAT(loaded(), SizeIs(6));
    writeFile(root_.cursor(), saved);
    EXPECT_THAT(loaded(), IsEmpty());
    journal_.clear({"/c"});
    EXPECT_EQ(firstLineOf(contentOf(path())), head);
    EXPECT_THAT(loaded(), ElementsAre("/a is new", "/b is new", "/c is new"));
  }
  journal_.addNew({"/a", "/b", "/c"});
  EXPECT_THAT(loaded(), SizeIs(3));
  journal_.clear();
  EXPECT_EQ(contentOf(path()), "");
  journal_.addNew({"/c"});
  EXPECT_THAT(loaded(), ElementsAre("/c is new"));
  journal_.clear();
  journal_.clear({"/d"});
  EXPECT_THAT(loaded(), ElementsAre("/d is new"));
}

TEST_F(JournalTest, WhatIsStillNewIsWrittenAgainWhereItStoodBetweenEvents) {
  addThreeEvents();
  journal_.addNew({"/a", "/b"});
  journal_.clear({"/b"});
  EXPECT_THAT(loaded(), ElementsAre("/b is new"));
  journal_.addNew({"/c"});
  addThreeEvents();
  EXPECT_THAT(loaded(), SizeIs(5));
  journal_.clear({"/b", "/c"});
  EXPECT_THAT(loaded(), ElementsAre("/b is new", "/c is new"));
  addThreeEvents();
  Journal next(root_.cursor());
  EXPECT_THAT(next.load(), SizeIs(5));
  next.addNew({"/d"});
  EXPECT_THAT(loaded(), SizeIs(6));
  next.clear({"/d"});
  EXPECT_THAT(loaded(), ElementsAre("/d is new"));
}

TEST_F(JournalTest, DamageToWhatIsNewLeavesNothing) {
  journal_.addNew({"/a", "/b"});
  journal_.clear({"/b"});
  addThreeEvents();
  const std::string good = contentOf(path());
  for (std::size_t at = 0; at < firstLineOf(good).size(); ++at) {
    std::string damaged = good;
    damaged[at] ^= 1;
    writeFile(path(), damaged);
    EXPECT_THAT(loaded(), IsEmpty()) << at;
  }
  writeFile(path(), good.substr(0, firstLineOf(good).size()));
  EXPECT_THAT(loaded(), IsEmpty());
  fs::remove(root_.cursor());
  EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(JournalTest, EndsAtAnOffsetBelowZero) {
  for (const char* where : {"offset", "values"}) {
    addThreeEvents();
    if (where == std::string("offset")) {
      journal_.addLine({{"step_position", 9}}, -1);
    } else {
      journal_.addEvent({{"offset", -1}}, "d");
    }
    journal_.addEvent(json::object(), "e");
    EXPECT_THAT(loaded(), SizeIs(3)) << where;
    journal_.clear();
  }
}

TEST_F(JournalTest, ASavedCursorEmptiesOneThatWasOfNoUse) {
  addThreeEvents();
  writeFile(root_.cursor(), "{ }");
  Journal next(root_.cursor());
  EXPECT_THAT(next.load(), IsEmpty());
  next.clear();
  EXPECT_EQ(contentOf(path()), "");
}

TEST_F(JournalTest, AKnownTranscriptWithoutEventsWritesNothing) {
  journal_.begin("/t", {{"offset", 0}});
  journal_.addLine({{"offset", 0}}, 20);
  EXPECT_FALSE(fs::exists(path()));
}

TEST_F(JournalTest, AHandledLineGoesWithTheNextEvent) {
  const json values{{"offset", 0}};
  journal_.begin("/t", values);
  journal_.addEvent(values, "a");
  journal_.addLine(values, 20);
  EXPECT_THAT(loaded(), ElementsAre("/t {} seen a"));
  journal_.addEvent(values, "b");
  journal_.addEvent(values, "c");
  EXPECT_THAT(loaded(), ElementsAre("/t {} seen a", "/t {} to 20 seen b", "/t {} seen c"));
}

TEST_F(JournalTest, AHandledLineThatChangedTheStateIsWrittenAtOnce) {
  json values{{"run_id", nullptr}};
  journal_.begin("/t", values);
  values["run_id"] = "R";
  journal_.addLine(values, 20);
  EXPECT_THAT(loaded(), ElementsAre(R"(/t {"run_id":"R"} to 20)"));
}

TEST_F(JournalTest, ALineOfOneTranscriptIsNotTakenForOneOfTheNext) {
  const json values{{"offset", 0}};
  journal_.begin("/t", values);
  journal_.addLine(values, 20);
  journal_.begin("/u", values);
  journal_.addEvent(values, "a");
  EXPECT_THAT(loaded(), ElementsAre("/u {} seen a"));
}

TEST_F(JournalTest, ASavedCursorEmptiesIt) {
  addThreeEvents();
  journal_.clear();
  EXPECT_EQ(contentOf(path()), "");
  EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(JournalTest, AfterASavedCursorItContinuesTheNewOne) {
  addThreeEvents();
  writeFile(root_.cursor(), R"({"/t": {}})");
  journal_.clear();
  journal_.addEvent({{"step_position", 9}}, "d");
  EXPECT_THAT(loaded(), ElementsAre(R"(/t {"step_position":9} seen d)"));
}

TEST_F(JournalTest, IsOfNoUseToAnotherCursorFile) {
  addThreeEvents();
  ASSERT_THAT(loaded(), SizeIs(3));
  writeFile(root_.cursor() + ".tmp", "{}");  // of the same size
  fs::last_write_time(root_.cursor() + ".tmp", fs::last_write_time(root_.cursor()));
  fs::rename(root_.cursor() + ".tmp", root_.cursor());
  EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(JournalTest, IsOfNoUseToACursorFileThatWasEdited) {
  addThreeEvents();
  const auto written = fs::last_write_time(root_.cursor());
  writeFile(root_.cursor(), "{ }");
  fs::last_write_time(root_.cursor(), written);
  EXPECT_THAT(loaded(), IsEmpty()) << "another size";
  writeFile(root_.cursor(), "{}");
  fs::last_write_time(root_.cursor(), written);
  EXPECT_THAT(loaded(), SizeIs(3));
  fs::last_write_time(root_.cursor(), written + std::chrono::microseconds(1));
  EXPECT_THAT(loaded(), IsEmpty()) << "another time";
}

TEST_F(JournalTest, IsOfNoUseOnceTheCursorFileIsGone) {
  addThreeEvents();
  fs::remove(root_.cursor());
  EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(JournalTest, BeginsBeforeThereIsACursorFileOrItsFolder) {
  fs::remove_all(fs::path(path()).parent_path());
  addThreeEvents();
  EXPECT_THAT(loaded(), SizeIs(3));
}

TEST_F(JournalTest, AnAgentThatLoadedItGoesOnBehindWhatIsGood) {
  addThreeEvents();
  test::appendToFile(path(), "half an ent");
  Journal next(root_.cursor());
  EXPECT_THAT(next.load(), SizeIs(3));
  next.begin("/u", json::object());
  next.addEvent(json::object(), "d");
  EXPECT_THAT(loaded(), SizeIs(4));
  next.clear();
  EXPECT_EQ(contentOf(path()), "");
}

TEST_F(JournalTest, AnAgentThatLoadedItEmptiesItEvenIfItAddsNothing) {
  addThreeEvents();
  Journal next(root_.cursor());
  next.load();
  next.clear();
  EXPECT_EQ(contentOf(path()), "");
}

TEST_F(JournalTest, IsBelievedUpToTheFirstDamagedByte) {
  addThreeEvents();
  const std::string good = contentOf(path());
  std::vector<std::size_t> ends;  // of the header and of each event
  for (std::size_t at = 0; at < good.size(); ++at) {
    if (good[at] == '\n') ends.push_back(at);
  }
  ASSERT_THAT(ends, SizeIs(4));
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::size_t whole = 0;  // records before the damaged one
    while (ends[whole] < at) ++whole;
    for (const char other : {'x', ' ', '\n', '\0'}) {
      if (good[at] == other) continue;
      std::string damaged = good;
      damaged[at] = other;
      writeFile(path(), damaged);
      EXPECT_THAT(loaded(), SizeIs(whole == 0 ? 0 : whole - 1)) << at << " " << other;
    }
    writeFile(path(), good.substr(0, at));
    EXPECT_THAT(loaded(), SizeIs(whole == 0 ? 0 : whole - 1)) << "cut at " << at;
  }
}

TEST_F(JournalTest, AMissingEntryEndsIt) {
  addThreeEvents();
  std::string content = contentOf(path());
  const auto second = content.find('\n', content.find('\n') + 1) + 1;
  content.erase(second, content.find('\n', second) + 1 - second);
  writeFile(path(), content);
  EXPECT_THAT(loaded(), SizeIs(1));
}

TEST_F(JournalTest, AFileThatIsCutShortMeanwhileIsNotFilledUp) {
  addThreeEvents();
  Journal next(root_.cursor());
  EXPECT_THAT(next.load(), SizeIs(3));
  writeFile(path(), "cut");
  next.begin("/u", json::object());
  next.addEvent(json::object(), "d");
  EXPECT_EQ(contentOf(path()), "cut");
}

TEST_F(JournalTest, NamesThatDoNotStandThereAreWrittenBehindTheNextSave) {
  for (const bool isWritten : {true, false}) {
    if (!isWritten) fs::create_directory(path());
    journal_.addNew({"/a", "/w"});
    fs::remove(path());
    writeFile(root_.cursor(), isWritten ? "{ }" : "{  }");
    journal_.clear({"/w"});
    addThreeEvents();
    EXPECT_THAT(loaded(), SizeIs(4)) << isWritten;
    journal_.clear();
    fs::remove(path());
  }
}

TEST_F(JournalTest, IsForItsOwnerOnly) {
  addThreeEvents();
  EXPECT_EQ(test::permissionsOf(path()), 0600);
}

TEST_F(JournalTest, NeverWritesThroughALink) {
  const std::string elsewhere = root_.path() + "/elsewhere";
  writeFile(elsewhere, "precious");
  fs::create_symlink(elsewhere, path());
  addThreeEvents();
  journal_.clear();
  EXPECT_EQ(contentOf(elsewhere), "precious");
}

TEST_F(JournalTest, GoesWithoutWhereItCannotBeWritten) {
  fs::create_directory(path());
  addThreeEvents();
  EXPECT_THAT(loaded(), IsEmpty());
  journal_.clear();
  fs::remove(path());
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  addThreeEvents();
  EXPECT_THAT(loaded(), IsEmpty());
  journal_.clear();
  fs::remove(path());
  addThreeEvents();
  EXPECT_THAT(loaded(), SizeIs(3)) << "once it can, it is written again";
}

TEST_F(JournalTest, HoldsADescriptorOnlyUntilTheCursorIsSaved) {
  const auto before = test::openDescriptors();
  addThreeEvents();
  journal_.clear();
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace pelmar
