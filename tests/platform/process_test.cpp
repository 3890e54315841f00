#include "platform/process.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cerrno>

#include "tests/support/open_descriptors.h"
#include "tests/support/temp_root.h"

namespace pelmar {
namespace {

using ::testing::Eq;
using ::testing::Optional;

std::optional<std::string> outputOfScript(const std::string& script) {
  return outputOf("/bin/sh", {"-c", script});
}

TEST(OutputOf, IsWhatTheToolWritesToItsStandardOutput) {
  EXPECT_THAT(outputOfScript("echo one; echo two"), Optional(Eq("one\ntwo\n")));
  EXPECT_THAT(outputOfScript("printf 'a\\000\\377z'"), Optional(Eq(std::string("a\0\xFFz", 4))));
  EXPECT_THAT(outputOfScript("exit 0"), Optional(Eq("")));
}

TEST(OutputOf, HandsTheArgumentsOverAsTheyAre) {
  EXPECT_THAT(outputOf("/bin/sh", {"-c", R"(printf '%s|' "$@")", "sh", "a b", "", "$HOME", "'\"*"}),
              Optional(Eq("a b||$HOME|'\"*|")));
}

TEST(OutputOf, TakesMoreThanAPipeHolds) {
  EXPECT_TRUE(outputOfScript("head -c 3000000 /dev/zero | tr '\\0' x") ==
              std::string(3000000, 'x'));
}

TEST(OutputOf, ThrowsAwayAnyAmountOfStandardError) {
  EXPECT_THAT(outputOfScript("head -c 3000000 /dev/zero >&2; echo done"), Optional(Eq("done\n")));
}

TEST(OutputOf, GivesTheToolNothingToRead) {
  EXPECT_THAT(outputOfScript("cat; echo end"), Optional(Eq("end\n")));
}

TEST(OutputOf, DoesNotLookAtTheExitStatus) {
  EXPECT_THAT(outputOfScript("echo out; exit 3"), Optional(Eq("out\n")));
  EXPECT_THAT(outputOfScript("echo out; kill -9 $$"), Optional(Eq("out\n")));
}

TEST(OutputOf, IsNoneWhenTheToolCannotBeStarted) {
  const test::TempRoot root;
  test::writeFile(root.path() + "/not-executable", "#!/bin/sh\necho out\n");
  EXPECT_EQ(outputOf(root.path() + "/missing", {}), std::nullopt);
  EXPECT_EQ(outputOf(root.path() + "/not-executable", {}), std::nullopt);
  EXPECT_EQ(outputOf(root.path() + "/home", {}), std::nullopt);
}

TEST(OutputOf, LeavesNoEndedProcessBehind) {
  EXPECT_TRUE(outputOfScript("echo out"));
  EXPECT_FALSE(outputOf("/missing/tool", {}));
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(OutputOf, HoldsNothingOpen) {
  const int before = test::openDescriptors();
  EXPECT_TRUE(outputOfScript("echo out"));
  EXPECT_FALSE(outputOf("/missing/tool", {}));
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace pelmar
