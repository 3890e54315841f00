#include "platform/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/open_descriptors.h"
#include "tests/support/temp_root.h"

namespace pelmar {
namespace {

using test::contentOf;
using test::writeFile;
using ::testing::Eq;
using ::testing::Optional;

namespace fs = std::filesystem;

std::string reasonOf(int error) { return std::generic_category().message(error); }

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & mode_t{07777};
}

// No permission bit is withheld, so that modes show as they were asked for.
class Files : public testing::Test {
 protected:
  Files() : mask_(::umask(0)) {}
  ~Files() override { ::umask(mask_); }

  std::string below(const std::string& name) const { return root_.path() + "/" + name; }

  std::string fifo() const {
    std::string path = below("fifo");
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    return path;
  }

 private:
  test::TempRoot root_;
  mode_t mask_;
};

using ReadFile = Files;

TEST_F(ReadFile, IsNoneWhereNothingCanBeRead) {
  EXPECT_EQ(readFile(below("missing")), std::nullopt);
  EXPECT_EQ(readFile(below("missing/file")), std::nullopt);
  EXPECT_EQ(readFile(below("home")), std::nullopt);
  EXPECT_EQ(readFile(""), std::nullopt);
  fs::create_symlink("nowhere", below("dangling"));
  EXPECT_EQ(readFile(below("dangling")), std::nullopt);
}

TEST_F(ReadFile, WhatWasReadBeforeDoesNotStandForWhatCannotBeRead) {
  writeFile(below("file"), "before");
  for (const char* unreadable : {"missing", "home"}) {
    std::string content;
    ASSERT_TRUE(readFileAt(AT_FDCWD, below("file").c_str(), content));
    ASSERT_EQ(content, "before");
    EXPECT_FALSE(readFileAt(AT_FDCWD, below(unreadable).c_str(), content)) << unreadable;
    EXPECT_EQ(content, "") << unreadable;
  }
}

TEST_F(ReadFile, ReadsFilesOfAnySizeWhole) {
  for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 131072U, 3000000U}) {
    std::string content(size, 'x');
    for (std::size_t i = 0; i < size; i += 251) content[i] = static_cast<char>(i / 251);
    writeFile(below("file"), content);
    EXPECT_TRUE(readFile(below("file")) == content) << size;
  }
}

TEST_F(ReadFile, FollowsALink) {
  writeFile(below("file"), "content");
  fs::create_symlink("file", below("link"));
  EXPECT_THAT(readFile(below("link")), Optional(Eq("content")));
}

TEST_F(ReadFile, DoesNotWaitForTheWriterOfAFifo) {
  EXPECT_THAT(readFile(fifo()), Optional(Eq("")));
}

TEST_F(ReadFile, TakesABoundedPieceOfWhatNeverEnds) {
  fs::create_symlink("/dev/zero", below("endless"));
  EXPECT_TRUE(readFile(below("endless")) == std::string(1024 * 1024, '\0'));
}

TEST_F(ReadFile, HoldsNothingOpen) {
  writeFile(below("file"), "content");
  const int before = test::openDescriptors();
  readFile(below("file"));
  readFile(below("home"));
  readRange(below("file"), 1, 2);
  EXPECT_TRUE(appendLine(below("file"), "line"));
  EXPECT_EQ(replaceFile(below("file"), below("aside"), "new"), std::nullopt);
  EXPECT_NE(replaceFile(below("home"), below("aside"), "new"), std::nullopt);
  EXPECT_EQ(test::openDescriptors(), before);
}

using ReadRange = Files;

TEST_F(ReadRange, ReadsFromTheOffsetOnAndNoMoreThanAsked) {
  writeFile(below("file"), "0123456789");
  const struct {
    std::int64_t offset;
    std::int64_t length;
    const char* bytes;
  } kRanges[] = {{0, 10, "0123456789"}, {0, 3, "012"}, {3, 4, "3456"}, {9, 1, "9"}, {4, 0, ""}};
  for (const auto& [offset, length, bytes] : kRanges) {
    const auto read = readRange(below("file"), offset, length);
    EXPECT_TRUE(read.isOpened);
    EXPECT_THAT(read.bytes, Optional(Eq(bytes))) << offset << ' ' << length;
  }
}

TEST_F(ReadRange, ReadsFewerBytesWhereTheFileEndsBefore) {
  writeFile(below("file"), "0123456789");
  EXPECT_THAT(readRange(below("file"), 7, 100).bytes, Optional(Eq("789")));
  EXPECT_THAT(readRange(below("file"), 10, 5).bytes, Optional(Eq("")));
  EXPECT_THAT(readRange(below("file"), 11, 5).bytes, Optional(Eq("")));
  EXPECT_THAT(readRange(below("file"), std::int64_t{1} << 40, 5).bytes, Optional(Eq("")));
}

TEST_F(ReadRange, ReadsBeyondOnePiece) {
  const std::string content = std::string(200000, 'a') + std::string(200000, 'b');
  writeFile(below("file"), content);
  EXPECT_TRUE(readRange(below("file"), 1, 399998).bytes == content.substr(1, 399998));
}

TEST_F(ReadRange, TellsAMissingFileFromOneThatCannotBeRead) {
  const auto missing = readRange(below("missing"), 0, 10);
  EXPECT_FALSE(missing.isOpened);
  EXPECT_EQ(missing.bytes, std::nullopt);
  const auto folder = readRange(below("home"), 0, 10);
  EXPECT_TRUE(folder.isOpened);
  EXPECT_EQ(folder.bytes, std::nullopt);
}

TEST_F(ReadRange, MoreThanMemoryHoldsIsAFailedRead) {
  writeFile(below("file"), "0123456789");
  const auto read = readRange(below("file"), 0, std::numeric_limits<std::int64_t>::max());
  EXPECT_TRUE(read.isOpened);
  EXPECT_EQ(read.bytes, std::nullopt);
}
TEST_F(ReadRange, DoesNotWaitForTheWriterOfAFifo) {
  EXPECT_EQ(readRange(fifo(), 0, 10).bytes, std::nullopt);
}

TEST_F(ReadRange, EndsTheProcessAtANegativeOffset) {
  writeFile(below("file"), "0123456789");
  EXPECT_DEATH(readRange(below("file"), -1, 1), "Fatal error: ");
  EXPECT_EQ(readRange(below("file"), 0, 1).bytes, "0");
}

using SizeOf = Files;

TEST_F(SizeOf, CountsBytesAndFollowsLinks) {
  writeFile(below("empty"), "");
  writeFile(below("file"), std::string(70001, 'x'));
  fs::create_symlink("file", below("link"));
  fs::create_symlink("nowhere", below("dangling"));
  EXPECT_THAT(sizeOf(below("empty")), Optional(Eq(0)));
  EXPECT_THAT(sizeOf(below("file")), Optional(Eq(70001)));
  EXPECT_THAT(sizeOf(below("link")), Optional(Eq(70001)));
  EXPECT_EQ(sizeOf(below("dangling")), std::nullopt);
  EXPECT_EQ(sizeOf(below("missing")), std::nullopt);
}

TEST_F(SizeOf, HoldsForFilesBeyondFourGigabytes) {
  writeFile(below("file"), "");
  fs::resize_file(below("file"), 5000000000);
  EXPECT_THAT(sizeOf(below("file")), Optional(Eq(5000000000)));
  EXPECT_THAT(readRange(below("file"), 4999999999, 10).bytes, Optional(Eq(std::string(1, '\0'))));
}

using CreateFolders = Files;

TEST_F(CreateFolders, MakesAllThatIsMissingForItsOwnerOnly) {
  createFolders(below("home/a/b/c"));
  for (const auto* folder : {"home/a", "home/a/b", "home/a/b/c"}) {
    EXPECT_TRUE(fs::is_directory(below(folder))) << folder;
    EXPECT_EQ(modeOf(below(folder)), 0700U) << folder;
  }
}

TEST_F(CreateFolders, LeavesWhatStandsThere) {
  fs::create_directory(below("open"));
  fs::permissions(below("open"), fs::perms(0755));
  createFolders(below("open/inner"));
  createFolders(below("open/inner"));
  EXPECT_EQ(modeOf(below("open")), 0755U);
  writeFile(below("file"), "content");
  createFolders(below("file/inner"));
  EXPECT_EQ(contentOf(below("file")), "content");
}

class ReplaceFile : public Files {
 protected:
  // What replaceFile says while no file can become longer than `most` bytes.
  std::optional<std::string> replacedBelowLimit(rlim_t most,
                                                std::span<const std::string_view> pieces) const {
    rlimit before{};
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit limited{.rlim_cur = most, .rlim_max = before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    auto failure = replaceFile(below("file"), below("aside"), pieces);
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    return failure;
  }
};

TEST_F(ReplaceFile, CreatesAFileForItsOwnerOnly) {
  EXPECT_EQ(replaceFile(below("file"), below("aside"), std::string(300000, 'n')), std::nullopt);
  EXPECT_TRUE(contentOf(below("file")) == std::string(300000, 'n'));
  EXPECT_EQ(modeOf(below("file")), 0600U);
  EXPECT_FALSE(fs::exists(below("aside")));
}

TEST_F(ReplaceFile, PutsPiecesOfAnySizeOneBehindTheOther) {
  constexpr std::size_t kBuffer = 65536;
  const std::vector<std::size_t> rows[] = {{},
                                           {0},
                                           {1, 0, 2},
                                           {kBuffer},
                                           {kBuffer - 1, 1, 1},
                                           {kBuffer - 1, 2},
                                           {3, kBuffer, 3},
                                           {3, kBuffer + 1, 3, 0, 3 * kBuffer},
                                           {kBuffer + 1, kBuffer + 1},
                                           std::vector<std::size_t>(1000, 999)};
  for (const auto& sizes : rows) {
    std::vector<std::string> pieces;
    std::string whole;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      pieces.emplace_back(sizes[i], static_cast<char>('a' + i % 26));
      whole += pieces.back();
    }
    const std::vector<std::string_view> views(pieces.begin(), pieces.end());
    EXPECT_EQ(replaceFile(below("file"), below("aside"), views), std::nullopt);
    EXPECT_TRUE(contentOf(below("file")) == whole) << testing::PrintToString(sizes);
  }
}

TEST_F(ReplaceFile, LeavesTheOldFileWhicheverPieceCannotBeWritten) {
  writeFile(below("file"), "old");
  const std::string small(40000, 's');
  const std::string large(80000, 'l');
  const std::vector<std::string_view> rows[] = {
      {small}, {large}, {small, small}, {small, large}, {"before it", large}, {large, "behind it"}};
  for (const auto& pieces : rows) {
    EXPECT_THAT(replacedBelowLimit(39999, pieces), Optional(Eq(reasonOf(EFBIG))));
    EXPECT_EQ(contentOf(below("file")), "old");
    EXPECT_FALSE(fs::exists(below("aside")));
  }
}

TEST_F(ReplaceFile, PutsANewFileInThePlaceOfTheOldOne) {
  writeFile(below("file"), "old and longer");
  fs::permissions(below("file"), fs::perms(0644));
  fs::create_hard_link(below("file"), below("kept"));
  EXPECT_EQ(replaceFile(below("file"), below("aside"), "new"), std::nullopt);
  EXPECT_EQ(contentOf(below("file")), "new");
  EXPECT_EQ(modeOf(below("file")), 0600U);
  EXPECT_EQ(contentOf(below("kept")), "old and longer");
}

TEST_F(ReplaceFile, ReplacesALinkAndNotWhatItNames) {
  writeFile(below("other"), "other");
  fs::create_symlink("other", below("file"));
  EXPECT_EQ(replaceFile(below("file"), below("aside"), "new"), std::nullopt);
  EXPECT_FALSE(fs::is_symlink(below("file")));
  EXPECT_EQ(contentOf(below("other")), "other");
}

TEST_F(ReplaceFile, WritesThroughNothingThatStandsInItsWayAside) {
  writeFile(below("other"), "other");
  fs::create_symlink("other", below("aside"));
  EXPECT_EQ(replaceFile(below("file"), below("aside"), "new"), std::nullopt);
  EXPECT_EQ(contentOf(below("other")), "other");

  EXPECT_EQ(replaceFile(below("file"), fifo(), "newer"), std::nullopt);
  EXPECT_TRUE(fs::is_regular_file(below("file")));
  EXPECT_EQ(contentOf(below("file")), "newer");

  writeFile(below("aside"), "left by a crash, and longer");
  EXPECT_EQ(replaceFile(below("file"), below("aside"), "last"), std::nullopt);
  EXPECT_EQ(contentOf(below("file")), "last");
}

TEST_F(ReplaceFile, LeavesTheOldFileAndSaysWhyItFailed) {
  writeFile(below("file"), "old");
  EXPECT_THAT(replaceFile(below("file"), below("missing/aside"), "new"),
              Optional(Eq(reasonOf(ENOENT))));
  EXPECT_EQ(contentOf(below("file")), "old");

  fs::create_directory(below("folder"));
  EXPECT_THAT(replaceFile(below("file"), below("folder"), "new"), Optional(Eq(reasonOf(EEXIST))));
  EXPECT_EQ(contentOf(below("file")), "old");

  EXPECT_THAT(replaceFile(below("file/inner"), below("aside"), "new"),
              Optional(Eq(reasonOf(ENOTDIR))));
  EXPECT_EQ(contentOf(below("file")), "old");
}

TEST_F(ReplaceFile, LeavesAFolderAndNothingBesideIt) {
  writeFile(below("folder/inner"), "kept");
  EXPECT_THAT(replaceFile(below("folder"), below("aside"), "new"), Optional(Eq(reasonOf(EISDIR))));
  EXPECT_EQ(contentOf(below("folder/inner")), "kept");
  EXPECT_FALSE(fs::exists(below("aside")));
}

using AppendLine = Files;

TEST_F(AppendLine, AddsTheLineAndALineFeed) {
  writeFile(below("file"), "first\n");
  fs::permissions(below("file"), fs::perms(0640));
  EXPECT_TRUE(appendLine(below("file"), "second"));
  EXPECT_TRUE(appendLine(below("file"), ""));
  EXPECT_TRUE(appendLine(below("file"), std::string(100000, 'x')));
  EXPECT_EQ(contentOf(below("file")), "first\nsecond\n\n" + std::string(100000, 'x') + "\n");
  EXPECT_EQ(modeOf(below("file")), 0640U);
}

TEST_F(AppendLine, CreatesNothing) {
  EXPECT_FALSE(appendLine(below("missing"), "line"));
  EXPECT_FALSE(fs::exists(below("missing")));
  EXPECT_FALSE(appendLine(below("missing/file"), "line"));
  EXPECT_FALSE(appendLine(below("home"), "line"));
}

TEST_F(AppendLine, DoesNotWaitForTheReaderOfAFifo) { EXPECT_FALSE(appendLine(fifo(), "line")); }

}  // namespace
}  // namespace pelmar
