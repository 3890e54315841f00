#include "watcher/audit_files.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_root.h"
#include "tests/support/without_privileges.h"

namespace pelmar {
namespace {

using test::TempRoot;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

// A record named like the session, in the folder of session records.
std::string recordPath(const TempRoot& root, const std::string& name) {
  return root.sessionRecords() + "/" + name;
}

void makeFifo(const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
}

TEST(DesktopSessionIds, NoFolderOfRecordsGivesNone) {
  const TempRoot root;
  EXPECT_THAT(desktopSessionIds(), IsEmpty());
}

TEST(DesktopSessionIds, EmptyFolderOfRecordsGivesNone) {
  const TempRoot root;
  std::filesystem::create_directories(root.sessionRecords());
  EXPECT_THAT(desktopSessionIds(), IsEmpty());
}

TEST(DesktopSessionIds, FileInPlaceOfTheFolderGivesNone) {
  const TempRoot root;
  writeFile(root.sessionRecords(), R"({"cliSessionId": "a"})");
  EXPECT_THAT(desktopSessionIds(), IsEmpty());
}

TEST(DesktopSessionIds, RecordsOfEveryDepthCount) {
  const TempRoot root;
  writeFile(recordPath(root, "local_1.json"), R"({"cliSessionId": "a"})");
  writeFile(recordPath(root, "x/local_2.json"), R"({"cliSessionId": "b", "title": "t"})");
  writeFile(recordPath(root, "x/y/z/local_3.json"), R"({"cliSessionId": "c"})");
  EXPECT_THAT(desktopSessionIds(), UnorderedElementsAre("a", "b", "c"));
}

TEST(DesktopSessionIds, SessionsNamedTwiceCountOnce) {
  const TempRoot root;
  writeFile(recordPath(root, "local_1.json"), R"({"cliSessionId": "a"})");
  writeFile(recordPath(root, "x/local_1.json"), R"({"cliSessionId": "a"})");
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, OnlyNamesOfSessionRecordsAreRead) {
  const TempRoot root;
  for (const char* name :
       {"local.json", "Local_1.json", "xlocal_1.json", "local-1.json", "local_1.JSON",
        "local_1.jsonl", "local_1.json.bak", "local_1", "local_json", "session.json"}) {
    writeFile(recordPath(root, name), std::string(R"({"cliSessionId": ")") + name + "\"}");
  }
  EXPECT_THAT(desktopSessionIds(), IsEmpty());
}

TEST(DesktopSessionIds, ShortestAndDottedRecordNamesCount) {
  const TempRoot root;
  writeFile(recordPath(root, "local_.json"), R"({"cliSessionId": "a"})");
  writeFile(recordPath(root, "local_1.json.json"), R"({"cliSessionId": "b"})");
  EXPECT_THAT(desktopSessionIds(), UnorderedElementsAre("a", "b"));
}

TEST(DesktopSessionIds, RecordsWithoutAUsableIdAreLeftOut) {
  const TempRoot root;
  const char* contents[] = {R"({})",
                            R"({"cliSessionId": ""})",
                            R"({"cliSessionId": null})",
                            R"({"cliSessionId": 7})",
                            R"({"cliSessionId": ["a"]})",
                            R"({"clisessionid": "a"})",
                            R"({"session": {"cliSessionId": "a"}})"};
  int number = 0;
  for (const char* content : contents) {
    writeFile(recordPath(root, "local_" + std::to_string(number++) + ".json"), content);
  }
  EXPECT_THAT(desktopSessionIds(), IsEmpty());
}

TEST(DesktopSessionIds, RecordsThatAreNoJsonObjectAreLeftOutAndTheOthersCount) {
  const TempRoot root;
  const std::string contents[] = {"",
                                  "not json",
                                  R"([{"cliSessionId": "a"}])",
                                  R"("a")",
                                  "null",
                                  R"({"cliSessionId": "a")",
                                  R"({"cliSessionId": "a"} x)",
                                  "{\"cliSessionId\": \"a\xFF\"}",
                                  R"({'cliSessionId': 'a'})"};
  int number = 0;
  for (const std::string& content : contents) {
    writeFile(recordPath(root, "local_" + std::to_string(number++) + ".json"), content);
  }
  writeFile(recordPath(root, "local_good.json"), R"({"cliSessionId": "good"})");
  EXPECT_THAT(desktopSessionIds(), ElementsAre("good"));
}

TEST(DesktopSessionIds, RecordsOfAnySizeAreReadWhole) {
  const TempRoot root;
  for (const std::size_t size : {65535U, 65536U, 65537U, 2'000'000U}) {
    std::string content = R"({"cliSessionId": "a)" + std::to_string(size) + "\"";
    content += std::string(size - content.size() - 1, ' ') + "}";
    writeFile(recordPath(root, "local_" + std::to_string(size) + ".json"), content);
  }
  EXPECT_THAT(desktopSessionIds(), UnorderedElementsAre("a65535", "a65536", "a65537", "a2000000"));
}

TEST(DesktopSessionIds, HiddenEntriesAndTheirContentsAreLeftOut) {
  const TempRoot root;
  writeFile(recordPath(root, ".hidden/local_1.json"), R"({"cliSessionId": "a"})");
  writeFile(recordPath(root, ".hidden/x/local_1.json"), R"({"cliSessionId": "b"})");
  writeFile(recordPath(root, ".local_1.json"), R"({"cliSessionId": "c"})");
  EXPECT_THAT(desktopSessionIds(), IsEmpty());
}

TEST(DesktopSessionIds, FoldersSkippedAmongTranscriptsAreNotSkippedHere) {
  const TempRoot root;
  writeFile(recordPath(root, "node_modules/local_1.json"), R"({"cliSessionId": "a"})");
  writeFile(recordPath(root, "debug/local_1.json"), R"({"cliSessionId": "b"})");
  EXPECT_THAT(desktopSessionIds(), UnorderedElementsAre("a", "b"));
}

TEST(DesktopSessionIds, FolderNamedLikeARecordIsWalked) {
  const TempRoot root;
  writeFile(recordPath(root, "local_folder.json/local_1.json"), R"({"cliSessionId": "a"})");
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, RecordBehindALinkIsRead) {
  const TempRoot root;
  writeFile(root.path() + "/elsewhere.json", R"({"cliSessionId": "a"})");
  std::filesystem::create_directories(root.sessionRecords());
  std::filesystem::create_symlink(root.path() + "/elsewhere.json",
                                  recordPath(root, "local_link.json"));
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, DanglingLinkIsLeftOut) {
  const TempRoot root;
  root.addSession("a");
  std::filesystem::create_symlink(root.path() + "/nowhere", recordPath(root, "local_link.json"));
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, FoldersBehindLinksAreNotWalked) {
  const TempRoot root;
  root.addSession("a");
  writeFile(root.path() + "/elsewhere/local_1.json", R"({"cliSessionId": "b"})");
  std::filesystem::create_symlink(root.path() + "/elsewhere", recordPath(root, "link"));
  std::filesystem::create_symlink(root.sessionRecords(), recordPath(root, "cycle"));
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, FifoAsARecordDoesNotBlock) {
  const TempRoot root;
  root.addSession("a");
  makeFifo(recordPath(root, "local_fifo.json"));
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, EndlessDeviceAsARecordDoesNotBlock) {
  const TempRoot root;
  root.addSession("a");
  std::filesystem::create_symlink("/dev/zero", recordPath(root, "local_zero.json"));
  EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
}

TEST(DesktopSessionIds, WhatCannotBeReadIsLeftOut) {
  const TempRoot root;
  root.addSession("a");
  writeFile(recordPath(root, "local_secret.json"), R"({"cliSessionId": "b"})");
  writeFile(recordPath(root, "secret/local_1.json"), R"({"cliSessionId": "c"})");
  test::openToAll(root.path());
  std::filesystem::permissions(recordPath(root, "local_secret.json"), std::filesystem::perms::none);
  std::filesystem::permissions(recordPath(root, "secret"), std::filesystem::perms::none);
  {
    const test::WithoutPrivileges forNow;
    EXPECT_THAT(desktopSessionIds(), ElementsAre("a"));
  }
  std::filesystem::permissions(recordPath(root, "secret"), std::filesystem::perms::owner_all);
}

TEST(AuditFiles, AmongManyNoTranscriptOfAnotherSessionIsTakenForARecordedOne) {
  const TempRoot root;
  std::vector<std::string> recorded;
  for (int i = 0; i < 700; ++i) {
    recorded.push_back(root.addTranscript("session-" + std::to_string(i), "x"));
    writeFile(root.projects() + "/other-" + std::to_string(i) + ".jsonl", "x");
  }
  EXPECT_THAT(auditFiles(), UnorderedElementsAreArray(recorded));
}

TEST(AuditFiles, TranscriptOfARecordedSessionIsFoundAtAnyDepth) {
  const TempRoot root;
  writeFile(recordPath(root, "local_x.json"), R"({"cliSessionId": "abc"})");
  const std::string paths[] = {root.projects() + "/abc.jsonl",
                               root.projects() + "/some-project/abc.jsonl",
                               root.projects() + "/some-project/a/b/c/abc.jsonl"};
  for (const std::string& path : paths) writeFile(path, "");
  EXPECT_THAT(auditFiles(), testing::UnorderedElementsAreArray(paths));
}

TEST(AuditFiles, WithoutASessionRecordThereAreNone) {
  const TempRoot root;
  writeFile(root.projects() + "/p/abc.jsonl", "");
  EXPECT_THAT(auditFiles(), IsEmpty());
  writeFile(recordPath(root, "local_x.json"), R"({"title": "abc"})");
  EXPECT_THAT(auditFiles(), IsEmpty());
}

TEST(AuditFiles, WithoutAFolderOfProjectsThereAreNone) {
  const TempRoot root;
  root.addSession("abc");
  EXPECT_THAT(auditFiles(), IsEmpty());
}

TEST(AuditFiles, FileInPlaceOfTheFolderOfProjectsGivesNone) {
  const TempRoot root;
  root.addSession("projects");
  writeFile(root.projects(), "");
  EXPECT_THAT(auditFiles(), IsEmpty());
}

TEST(AuditFiles, TranscriptsOfSeveralSessionsAreAllTaken) {
  const TempRoot root;
  const std::string a = root.addTranscript("a", "");
  const std::string b = root.addTranscript("b", "x");
  writeFile(root.projects() + "/p/c.jsonl", "");
  EXPECT_THAT(auditFiles(), UnorderedElementsAre(a, b));
}

TEST(AuditFiles, NamesMatchByteForByte) {
  const TempRoot root;
  root.addSession("abc");
  root.addSession("\u00E9");  // precomposed
  for (const char* name : {"abc.json", "abc.JSONL", "abc.Jsonl", "abc.jsonl.bak", "abc", "abcjsonl",
                           "ABC.jsonl", "abcd.jsonl", "ab.jsonl", "xabc.jsonl", "abc .jsonl",
                           "abc.x.jsonl", "abc.jsonl.jsonl", "e\u0301.jsonl"}) {
    writeFile(root.projects() + "/p/" + name, "");
  }
  EXPECT_THAT(auditFiles(), IsEmpty());
}

TEST(AuditFiles, SessionIdMayHoldDotsAndBlanks) {
  const TempRoot root;
  for (const char* id : {"a.b", "a b", "a.jsonl", "-"}) {
    root.addTranscript(id, "");
  }
  EXPECT_THAT(auditFiles(), UnorderedElementsAre(root.projects() + "/some-project/a.b.jsonl",
                                                 root.projects() + "/some-project/a b.jsonl",
                                                 root.projects() + "/some-project/a.jsonl.jsonl",
                                                 root.projects() + "/some-project/-.jsonl"));
}

TEST(AuditFiles, SkippedFoldersAreNotEnteredAtAnyDepth) {
  const TempRoot root;
  const std::string taken = root.addTranscript("abc", "");
  for (const char* folder :
       {"cowork_plugins", ".claude.json.lock", "node_modules", ".git", "shim-lib", "shim-perm",
        "outputs", "uploads", "skills-plugin", "debug"}) {
    writeFile(root.projects() + "/" + folder + "/abc.jsonl", "");
    writeFile(root.projects() + "/p/q/" + folder + "/r/abc.jsonl", "");
  }
  EXPECT_THAT(auditFiles(), ElementsAre(taken));
}

TEST(AuditFiles, FoldersNamedAlmostLikeASkippedOneAreEntered) {
  const TempRoot root;
  root.addSession("abc");
  std::vector<std::string> paths;
  for (const char* folder :
       {"Debug", "debug2", "xdebug", "node_module", "output", "git", "claude.json.lock"}) {
    paths.push_back(root.projects() + "/" + folder + "/abc.jsonl");
    writeFile(paths.back(), "");
  }
  EXPECT_THAT(auditFiles(), testing::UnorderedElementsAreArray(paths));
}

TEST(AuditFiles, RegularFileNamedLikeASkippedFolderChangesNothing) {
  const TempRoot root;
  const std::string taken = root.addTranscript("abc", "");
  writeFile(root.projects() + "/debug", "");
  writeFile(root.projects() + "/some-project/node_modules", "");
  EXPECT_THAT(auditFiles(), ElementsAre(taken));
}

TEST(AuditFiles, HiddenEntriesAreNotVisited) {
  const TempRoot root;
  root.addSession("abc");
  root.addSession(".abc");
  root.addSession("");
  writeFile(root.projects() + "/.cache/abc.jsonl", "");
  writeFile(root.projects() + "/p/.cache/q/abc.jsonl", "");
  writeFile(root.projects() + "/p/.abc.jsonl", "");
  writeFile(root.projects() + "/p/.jsonl", "");
  EXPECT_THAT(auditFiles(), IsEmpty());
}

TEST(AuditFiles, FolderNamedLikeATranscriptIsNotTakenButEntered) {
  const TempRoot root;
  root.addSession("abc");
  writeFile(root.projects() + "/p/abc.jsonl/q/abc.jsonl", "");
  EXPECT_THAT(auditFiles(), ElementsAre(root.projects() + "/p/abc.jsonl/q/abc.jsonl"));
}

TEST(AuditFiles, WhatIsNoRegularFileIsNotTaken) {
  const TempRoot root;
  root.addSession("abc");
  root.addSession("def");
  writeFile(root.path() + "/elsewhere.jsonl", "");
  std::filesystem::create_directories(root.projects() + "/p");
  std::filesystem::create_symlink(root.path() + "/elsewhere.jsonl",
                                  root.projects() + "/p/abc.jsonl");
  makeFifo(root.projects() + "/p/def.jsonl");
  EXPECT_THAT(auditFiles(), IsEmpty());
}

TEST(AuditFiles, FoldersBehindLinksAreNotEntered) {
  const TempRoot root;
  const std::string taken = root.addTranscript("abc", "");
  writeFile(root.path() + "/elsewhere/abc.jsonl", "");
  std::filesystem::create_symlink(root.path() + "/elsewhere", root.projects() + "/link");
  std::filesystem::create_symlink(root.projects(), root.projects() + "/some-project/cycle");
  EXPECT_THAT(auditFiles(), ElementsAre(taken));
}

TEST(AuditFiles, FoldersThatCannotBeReadArePassedOver) {
  const TempRoot root;
  const std::string taken = root.addTranscript("abc", "");
  writeFile(root.projects() + "/secret/abc.jsonl", "");
  writeFile(root.projects() + "/zzz/abc.jsonl", "");
  test::openToAll(root.path());
  std::filesystem::permissions(root.projects() + "/secret", std::filesystem::perms::none);
  {
    const test::WithoutPrivileges forNow;
    EXPECT_THAT(auditFiles(), UnorderedElementsAre(taken, root.projects() + "/zzz/abc.jsonl"));
  }
  std::filesystem::permissions(root.projects() + "/secret", std::filesystem::perms::owner_all);
}

TEST(AuditFiles, TranscriptThatCannotBeReadIsStillListed) {
  const TempRoot root;
  const std::string path = root.addTranscript("abc", "");
  test::openToAll(root.path());
  std::filesystem::permissions(path, std::filesystem::perms::none);
  const test::WithoutPrivileges forNow;
  EXPECT_THAT(auditFiles(), ElementsAre(path));
}

TEST(AuditFiles, FolderNamesThatAreNotUtf8KeepTheirBytes) {
  const TempRoot root;
  root.addSession("abc");
  const std::string path = root.projects() + "/\xFF\xC3/abc.jsonl";
  std::error_code refused;  // some file systems take UTF-8 names only
  std::filesystem::create_directories(root.projects() + "/\xFF\xC3", refused);
  if (refused) GTEST_SKIP() << "the file system refuses the name: " << refused.message();
  writeFile(path, "");
  writeFile(root.projects() + "/\xFF.jsonl", "");
  EXPECT_THAT(auditFiles(), ElementsAre(path));
}

TEST(AuditFiles, FoldersDeeperThanTheLimitOfOpenFilesAreWalked) {
  const TempRoot root;
  root.addSession("abc");
  std::string folder = root.projects();
  for (int i = 0; i < 200; ++i) folder += "/deeper";
  writeFile(folder + "/abc.jsonl", "");
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit few{.rlim_cur = 64, .rlim_max = limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const auto files = auditFiles();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_THAT(files, ElementsAre(folder + "/abc.jsonl"));
}

TEST(AuditFiles, EveryCallLooksAnew) {
  const TempRoot root;
  const std::string a = root.addTranscript("a", "");
  EXPECT_THAT(auditFiles(), ElementsAre(a));
  const std::string b = root.addTranscript("b", "");
  EXPECT_THAT(auditFiles(), UnorderedElementsAre(a, b));
  std::filesystem::remove(a);
  EXPECT_THAT(auditFiles(), ElementsAre(b));
}

}  // namespace
}  // namespace pelmar
