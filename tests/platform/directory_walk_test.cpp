#include "platform/directory_walk.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "tests/support/open_descriptors.h"
#include "tests/support/temp_root.h"

namespace pelmar {

void PrintTo(EntryType type, std::ostream* out) {
  *out << (type == EntryType::regularFile ? "file"
           : type == EntryType::folder    ? "folder"
                                          : "other");
}

namespace {

using test::writeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

constexpr auto kFile = EntryType::regularFile;
constexpr auto kFolder = EntryType::folder;
constexpr auto kOther = EntryType::other;

class WalkFolder : public testing::Test {
 protected:
  std::string below(const std::string& name) const { return root_.path() + "/tree/" + name; }
  std::string tree() const { return root_.path() + "/tree"; }

  // The paths below the tree that are visited, with their types.
  std::vector<std::pair<std::string, EntryType>> visited() const {
    std::vector<std::pair<std::string, EntryType>> entries;
    walkFolder(tree(), [&](const Entry& entry) {
      EXPECT_EQ(entry.path.substr(0, tree().size() + 1), tree() + "/");
      EXPECT_EQ(entry.name, entry.path.substr(entry.path.rfind('/') + 1));
      entries.emplace_back(entry.path.substr(tree().size() + 1), entry.type);
      return Descend::yes;
    });
    return entries;
  }

  test::TempRoot root_;
};

TEST_F(WalkFolder, VisitsEverythingAtEveryDepthOnce) {
  writeFile(below("a.txt"), "");
  writeFile(below("one/b.txt"), "");
  writeFile(below("one/two/c.txt"), "");
  fs::create_directories(below("empty"));
  EXPECT_THAT(visited(),
              UnorderedElementsAre(Pair("a.txt", kFile), Pair("one", kFolder),
                                   Pair("one/b.txt", kFile), Pair("one/two", kFolder),
                                   Pair("one/two/c.txt", kFile), Pair("empty", kFolder)));
}

TEST_F(WalkFolder, LeavesOutHiddenEntriesAndWhatIsBelowThem) {
  writeFile(below(".hidden"), "");
  writeFile(below(".cache/inner/file"), "");
  writeFile(below("..."), "");
  writeFile(below("seen/.git/config"), "");
  writeFile(below("seen/a.hidden"), "");
  EXPECT_THAT(visited(), UnorderedElementsAre(Pair("seen", kFolder), Pair("seen/a.hidden", kFile)));
}

TEST_F(WalkFolder, DoesNotFollowLinks) {
  writeFile(below("folder/file"), "");
  fs::create_directory_symlink("folder", below("folder-link"));
  fs::create_directory_symlink("..", below("folder/up"));
  fs::create_symlink("file", below("folder/file-link"));
  fs::create_symlink("nowhere", below("dangling"));
  EXPECT_THAT(visited(),
              UnorderedElementsAre(Pair("folder", kFolder), Pair("folder/file", kFile),
                                   Pair("folder-link", kOther), Pair("folder/up", kOther),
                                   Pair("folder/file-link", kOther), Pair("dangling", kOther)));
}

TEST_F(WalkFolder, TellsFromFilesWhatIsNone) {
  fs::create_directories(tree());
  ASSERT_EQ(::mkfifo(below("fifo").c_str(), 0600), 0);
  EXPECT_THAT(visited(), ElementsAre(Pair("fifo", kOther)));
}

TEST_F(WalkFolder, TakesALinkAsItsRoot) {
  writeFile(root_.path() + "/real/inner/file", "");
  fs::create_directory_symlink("real", tree());
  EXPECT_THAT(visited(), UnorderedElementsAre(Pair("inner", kFolder), Pair("inner/file", kFile)));
}

TEST_F(WalkFolder, TakesAHiddenRoot) {
  writeFile(below(".claude/projects/file"), "");
  std::vector<std::string> names;
  walkFolder(below(".claude"), [&](const Entry& entry) {
    names.emplace_back(entry.name);
    return Descend::yes;
  });
  EXPECT_THAT(names, ElementsAre("projects", "file"));
}

TEST_F(WalkFolder, VisitsNothingWhereNoFolderStands) {
  EXPECT_THAT(visited(), IsEmpty());
  writeFile(tree(), "a file");
  EXPECT_THAT(visited(), IsEmpty());
}

TEST_F(WalkFolder, StaysOutOfFoldersThatTheVisitorDeclines) {
  writeFile(below("in/file"), "");
  writeFile(below("out/file"), "");
  writeFile(below("out/deeper/file"), "");
  writeFile(below("in/out/file"), "");
  std::vector<std::string> paths;
  walkFolder(tree(), [&](const Entry& entry) {
    paths.push_back(entry.path.substr(tree().size() + 1));
    return entry.name == "out" ? Descend::no : Descend::yes;
  });
  EXPECT_THAT(paths, UnorderedElementsAre("in", "in/file", "out", "in/out"));
}

TEST_F(WalkFolder, GoesOnWhenAFolderVanishesBeforeItIsRead) {
  writeFile(below("gone/file"), "");
  writeFile(below("other/file"), "");
  std::vector<std::string> paths;
  walkFolder(tree(), [&](const Entry& entry) {
    paths.push_back(entry.path.substr(tree().size() + 1));
    if (entry.name == "gone") fs::remove_all(entry.path);
    return Descend::yes;
  });
  EXPECT_THAT(paths, UnorderedElementsAre("gone", "other", "other/file"));
}

TEST_F(WalkFolder, Reaches300LevelsWithOneFolderOpen) {
  std::string path = tree();
  for (int level = 0; level < 300; ++level) path += "/d";
  writeFile(path + "/deepest", "");
  const int before = test::openDescriptors();
  int count = 0;
  bool isDeepestVisited = false;
  walkFolder(tree(), [&](const Entry& entry) {
    ++count;
    isDeepestVisited = isDeepestVisited || entry.path == path + "/deepest";
    EXPECT_EQ(test::openDescriptors(), before + 1);
    return Descend::yes;
  });
  EXPECT_EQ(count, 301);
  EXPECT_TRUE(isDeepestVisited);
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(WalkFolder, VisitsEachOfThousandsOfEntriesOnce) {
  std::vector<std::string> expected;
  for (int i = 0; i < 3000; ++i) {
    const std::string name = "file-" + std::to_string(i);
    writeFile(below(name), "");
    expected.push_back(name);
  }
  for (int i = 0; i < 1000; ++i) {
    const std::string name = "folder-" + std::to_string(i);
    fs::create_directory(below(name));
    expected.push_back(name);
  }
  const int before = test::openDescriptors();
  int most = before;
  std::vector<std::string> names;
  walkFolder(tree(), [&](const Entry& entry) {
    names.emplace_back(entry.name);
    if (names.size() % 1000 == 0) most = std::max(most, test::openDescriptors());
    return Descend::yes;
  });
  std::sort(names.begin(), names.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names, expected);
  EXPECT_EQ(most, before + 1);
}

}  // namespace
}  // namespace pelmar
